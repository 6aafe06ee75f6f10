#include "Tools/Commands.h"
namespace pavo::tools {
void addDemoCommand(CLI::App&, int&) {}
}
