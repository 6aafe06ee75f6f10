#pragma once

#include <sys/types.h>

#include <string>

namespace pavo {

// What the program is called that a process runs, as a person would recognise it: its file's name, or what
// the kernel calls the process where the file may not be seen. Empty where there is no such process.
std::string programName(pid_t process);

}  // namespace pavo
