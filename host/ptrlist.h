// zn::PtrList: the plug-in's implementation of the host's list interface.
//
// The list never owns what its elements point to: clear(), erase() and the destructor leave the
// pointed-to objects alone. Growth is std::vector's, which in the library we build with doubles the
// capacity, starting with room for one element.
#pragma once

#include <vector>

#include "host/interfaces.h"

namespace zn {

template <typename T>
class PtrList : public IPtrList<T> {
public:
    PtrList() = default;
    virtual ~PtrList() = default;

    unsigned int size() const override { return static_cast<unsigned int>(mItems.size()); }
    T get(unsigned int index) const override { return mItems[index]; }

    void add(T item) override { mItems.push_back(item); }
    void insert(int index, T item) override { mItems.insert(mItems.begin() + index, item); }

    int erase(unsigned int index) override {
        if (index >= mItems.size()) return -1;
        mItems.erase(mItems.begin() + index);
        return 0;
    }

    // Keeps the storage.
    void clear() override { mItems.clear(); }

private:
    std::vector<T> mItems;
};

}  // namespace zn
