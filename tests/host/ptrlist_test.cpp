// zn::PtrList: the list the plug-in hands to the host to be filled with devices.
#include <gtest/gtest.h>

#include <vector>

#include "host/ptrlist.h"

namespace {

std::vector<int*> contents(const zn::PtrList<int*>& list) {
    std::vector<int*> items;
    for (unsigned int i = 0; i < list.size(); ++i)
        items.push_back(list.get(i));
    return items;
}

class PtrListTest : public ::testing::Test {
protected:
    int a = 1, b = 2, c = 3, x = 9;
    zn::PtrList<int*> list;
};

TEST_F(PtrListTest, AddAppendsInOrder) {
    list.add(&a);
    list.add(&b);
    list.add(&c);
    EXPECT_EQ(contents(list), (std::vector<int*>{&a, &b, &c}));
}

TEST_F(PtrListTest, InsertAtFrontMiddleAndEnd) {
    list.add(&a);
    list.add(&b);
    list.insert(0, &x);
    EXPECT_EQ(contents(list), (std::vector<int*>{&x, &a, &b}));
    list.insert(2, &c);
    EXPECT_EQ(contents(list), (std::vector<int*>{&x, &a, &c, &b}));
    list.insert(static_cast<int>(list.size()), &x);
    EXPECT_EQ(contents(list), (std::vector<int*>{&x, &a, &c, &b, &x}));
}

TEST_F(PtrListTest, EraseChecksItsIndex) {
    list.add(&a);
    list.add(&b);
    list.add(&c);
    EXPECT_EQ(list.erase(3), -1);
    EXPECT_EQ(contents(list), (std::vector<int*>{&a, &b, &c}));
    EXPECT_EQ(list.erase(1), 0);
    EXPECT_EQ(contents(list), (std::vector<int*>{&a, &c}));
    EXPECT_EQ(list.erase(list.size() - 1), 0);
    EXPECT_EQ(contents(list), (std::vector<int*>{&a}));
}

TEST_F(PtrListTest, ClearEmptiesAndTheListStaysUsable) {
    list.clear();
    EXPECT_EQ(list.size(), 0u);
    list.add(&a);
    list.clear();
    EXPECT_EQ(list.size(), 0u);
    list.add(&b);
    EXPECT_EQ(contents(list), (std::vector<int*>{&b}));
}

TEST_F(PtrListTest, DestroyingAFilledListLeavesTheElementsAlive) {
    auto* owned = new int(42);
    {
        zn::PtrList<int*> local;
        local.add(owned);
    }
    EXPECT_EQ(*owned, 42);  // asan would report a use after free here
    delete owned;
}

TEST_F(PtrListTest, WorksThroughTheHostInterface) {
    zn::IPtrList<int*>* filled = &list;
    filled->add(&a);
    filled->insert(0, &b);
    EXPECT_EQ(filled->size(), 2u);
    EXPECT_EQ(filled->get(0), &b);
}

}  // namespace
