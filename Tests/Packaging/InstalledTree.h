#pragma once

#include <filesystem>
#include <set>
#include <string>
#include <vector>

// The tree that this build was installed into (DESTDIR), for tests that look at it.
namespace pavo::test::installed {

// The prefix in the tree, as <root>/usr/local.
std::filesystem::path prefix();
// The command.
std::string pavo();
// The bundle's folder.
std::filesystem::path bundle();
// Every file, from the prefix.
std::set<std::string> files();

struct Outcome {
    int status = -1;   // of the process; -1 where it did not end in time
    std::string text;  // its output and errors
};

// Runs a program, found on PATH, to its end.
Outcome run(const std::vector<std::string>& arguments);

// The commands that the help of pavo lists.
std::vector<std::string> commands();
// The long options that the help of pavo, or of one of its commands, lists.
std::set<std::string> options(const std::string& command = {});

}  // namespace pavo::test::installed
