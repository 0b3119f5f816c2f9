// Names parameterised test rows after their `name` field, so that a failing row names its case:
//   INSTANTIATE_TEST_SUITE_P(Cases, MyTest, ::testing::ValuesIn(kRows), testsupport::RowName());
// Characters GoogleTest does not allow in a name become '_'.
#pragma once

#include <gtest/gtest.h>

#include <cctype>
#include <string>

namespace testsupport {

struct RowName {
    template <typename Row>
    std::string operator()(const ::testing::TestParamInfo<Row>& info) const {
        std::string name(info.param.name);
        for (char& c : name)
            if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
        return name.empty() ? "row" + std::to_string(info.index) : name;
    }
};

}  // namespace testsupport
