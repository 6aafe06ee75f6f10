#include "Tools/CommandLine.h"
#include "Tools/Commands.h"

int main(int argc, char** argv)
{
    using namespace pavo::tools;
    return runCommandLine(argc, argv,
                          {addCameraCommand, addSendCommand, addViewCommand, addPreviewCommand,
                           addStatusCommand, addDemoCommand, addDoctorCommand});
}
