#include "Tools/CommandLine.h"

#include "Tools/Commands.h"

#include <cstdio>
#include <string>

namespace pavo::tools {
namespace {

// "camera, send or view"
std::string commandNames(const CLI::App& app)
{
    const auto commands = app.get_subcommands([](const CLI::App*) { return true; });
    std::string names;
    for (std::size_t index = 0; index < commands.size(); ++index) {
        if (index > 0) names += index + 1 < commands.size() ? ", " : " or ";
        names += commands[index]->get_name();
    }
    return names;
}

// One line: what is wrong, and where to read on. `word` is the first one on the command line, if any.
int reportMistake(const CLI::App& app, const CLI::ParseError& error, const std::string& word)
{
    std::string command = app.get_name();
    for (const auto* subcommand : app.get_subcommands())
        command += " " + subcommand->get_name();
    std::string mistake = error.what();
    if (app.get_subcommands().empty())
        mistake = (word.empty() ? "a command is missing" : "there is no command '" + word + "'") + ": " +
                  commandNames(app);
    std::fprintf(stderr, "%s: %s (\"%s --help\" says more)\n", command.c_str(), mistake.c_str(),
                 command.c_str());
    return kWrongUsage;
}

}  // namespace

int runCommandLine(int argc, char** argv, const std::vector<CommandAdder>& commands)
{
    int exitCode = 0;
    CLI::App app("A camera on this computer whose pictures come from a program.", "pavo");
    app.set_version_flag("--version", "pavo " PAVO_VERSION);
    app.require_subcommand(1);
    for (const CommandAdder add : commands)
        add(app, exitCode);
    app.footer("Start with \"pavo camera\"; then, in other terminals, \"pavo send\" and \"pavo view\".\n"
               "\"pavo COMMAND --help\" says more.");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        // Asking for help is no mistake.
        if (error.get_exit_code() == 0) return app.exit(error);
        return reportMistake(app, error, argc > 1 ? argv[1] : "");
    }
    return exitCode;
}

}  // namespace pavo::tools
