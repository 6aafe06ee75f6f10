#include "Tools/Commands.h"

int main(int argc, char** argv)
{
    using namespace pavo::tools;
    int exitCode = 0;
    CLI::App app("A camera on this computer whose pictures come from a program.", "pavo");
    app.set_version_flag("--version", "pavo " PAVO_VERSION);
    app.require_subcommand(1);
    addCameraCommand(app, exitCode);
    addSendCommand(app, exitCode);
    addViewCommand(app, exitCode);
    addDemoCommand(app, exitCode);
    app.footer("Start with \"pavo camera\"; then, in other terminals, \"pavo send\" and \"pavo view\".\n"
               "\"pavo COMMAND --help\" says more.");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        // The parser has one exit code for each mistake; whoever calls us needs to know that it was one.
        return app.exit(error) == 0 ? 0 : kWrongUsage;
    }
    return exitCode;
}
