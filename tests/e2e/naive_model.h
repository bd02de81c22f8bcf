// The whole tool once more, as plain as can be and without a line of it, that it must agree with.
#pragma once

#include <string>

#include "tests/e2e/tool.h"

namespace tests {

/// What the tool does to a store with one argument; returns its exit status.
int naive_tool(const std::string& argument, store_tree& store);

}  // namespace tests
