// What the table-driven platform tests share. Every row has a name: RowName
// makes it the name of the row's test, and PrintTo prints only it when a
// check of the row fails.
#pragma once

#include <gtest/gtest.h>

#include <type_traits>

namespace {

constexpr auto RowName = [](const auto& info) { return std::string(info.param.name); };

// Found by argument lookup for the rows, which live in each file's unnamed namespace.
template <class Row>
requires std::is_same_v<decltype(Row::name), const char*>
void PrintTo(const Row& row, std::ostream* os) { *os << row.name; }

}  // namespace
