#pragma once

#include <string>
#include <vector>

// What the adapters called on the framework doubles, in order. Any thread.
namespace pavo::test {

void recordCall(std::string call);
std::vector<std::string> calls();
void forgetCalls();

}  // namespace pavo::test
