// What the real shells offer on a command line that begins with pavo.

#include "Tests/Packaging/InstalledTree.h"
#include "Tests/Support/ChildProcess.h"
#include "Tests/Support/Descriptors.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace {

using namespace pavo::test;
using Words = std::set<std::string>;

// Works in a folder with one file and one folder, with the installed command first on PATH.
class Completion : public testing::Test {
protected:
    Completion()
    {
        const std::string path = (installed::prefix() / "bin").string() + ":" + ::getenv("PATH");
        ::setenv("PATH", path.c_str(), 1);
        ::setenv("LC_ALL", "C.UTF-8", 1);
        const std::filesystem::path work = folder_.path() + "/work";
        std::filesystem::create_directories(work / "shots");
        std::ofstream(work / "shot.png") << "a picture";
        std::filesystem::current_path(work);
    }
    ~Completion() override { std::filesystem::current_path("/"); }

    std::string scratch() const { return folder_.path(); }

private:
    const TemporaryFolder folder_;
};

class CompletionInBash : public Completion {
protected:
    // The last word is the one to complete.
    Words offered(std::vector<std::string> words)
    {
        const std::string script = installed::prefix() / "share" / "bash-completion" / "completions" / "pavo";
        std::vector<std::string> arguments = {"bash", "--norc", "--noprofile",
                                              PAVO_SOURCE_FOLDER "/Tests/Packaging/complete.bash", script};
        arguments.insert(arguments.end(), words.begin(), words.end());
        const auto outcome = installed::run(arguments);
        EXPECT_EQ(outcome.status, 0) << outcome.text;
        Words found;
        std::istringstream lines(outcome.text);
        for (std::string line; std::getline(lines, line);)
            if (!line.empty()) found.insert(line);
        return found;
    }
};

TEST_F(CompletionInBash, OffersEveryCommand)
{
    const auto commands = installed::commands();
    ASSERT_FALSE(commands.empty());
    EXPECT_EQ(offered({"pavo", ""}), Words(commands.begin(), commands.end()));
    EXPECT_EQ(offered({"pavo", "cam"}), Words{"camera"});
}

TEST_F(CompletionInBash, OffersEveryOption)
{
    EXPECT_EQ(offered({"pavo", "-"}), installed::options());
    for (const auto& command : installed::commands())
        EXPECT_EQ(offered({"pavo", command, "--"}), installed::options(command)) << command;
}

TEST_F(CompletionInBash, OffersTheValuesOfAnOption)
{
    EXPECT_EQ(offered({"pavo", "send", "--format", ""}), (Words{"UYVY", "YUY2", "NV12", "I420", "BGRA"}));
    EXPECT_EQ(offered({"pavo", "send", "--matrix", ""}), (Words{"auto", "bt601", "bt709"}));
    EXPECT_EQ(offered({"pavo", "view", "--format", ""}), (Words{"YUY2", "UYVY", "NV12", "BGRx"}));
    EXPECT_EQ(offered({"pavo", "send", "--format", "=", "N"}), Words{"NV12"});
    EXPECT_EQ(offered({"pavo", "preview", "--graphics", ""}), (Words{"auto", "symbols", "sixels", "kitty"}));
    EXPECT_EQ(offered({"pavo", "demo", "--pipewire", ""}), (Words{"auto", "running", "private", "embedded"}));
}

TEST_F(CompletionInBash, OffersFilesOrFoldersWhereOneIsAskedFor)
{
    EXPECT_EQ(offered({"pavo", "send", "--png", "sh"}), (Words{"shot.png", "shots"}));
    EXPECT_EQ(offered({"pavo", "camera", "--bundle", "sh"}), Words{"shots"});
}

TEST_F(CompletionInBash, OffersNothingForANumberAndGoesOnAfterAFlag)
{
    EXPECT_EQ(offered({"pavo", "view", "--seconds", ""}), Words());
    EXPECT_EQ(offered({"pavo", "view", "--json", "--tr"}), Words{"--trace"});
}

TEST_F(CompletionInBash, IsQuietWhereTheProgramIsGone)
{
    ::setenv("PATH", "/usr/bin:/bin", 1);
    EXPECT_EQ(offered({"no-such-program", ""}), Words());
}

TEST_F(CompletionInBash, IsLoadedWhenItIsNeeded)
{
    ::setenv("XDG_DATA_DIRS", (installed::prefix() / "share").c_str(), 1);
    const auto outcome = installed::run(
        {"bash", "--norc", "--noprofile", "-c",
         "source /usr/share/bash-completion/bash_completion; _completion_loader pavo; complete -p pavo"});
    EXPECT_EQ(outcome.text, "complete -F _pavo pavo\n");
}

class CompletionInZsh : public Completion {
protected:
    // The words that zsh adds to a line, without the last one that the line has.
    Words added(const std::string& line)
    {
        const std::string folder = installed::prefix() / "share" / "zsh" / "vendor-completions";
        const auto outcome = installed::run(
            {"zsh", "-f", PAVO_SOURCE_FOLDER "/Tests/Packaging/complete.zsh", folder, scratch(), line});
        EXPECT_EQ(outcome.status, 0) << outcome.text;
        const auto kept = line.rfind(' ') + 1;
        EXPECT_EQ(outcome.text.substr(0, kept), line.substr(0, kept));
        Words found;
        std::istringstream words(outcome.text.substr(std::min(kept, outcome.text.size())));
        for (std::string word; words >> word;)
            found.insert(word);
        return found;
    }
    static Words withoutSigns(Words words)
    {
        Words plain;
        for (const auto& word : words)
            plain.insert(word.substr(0, word.find('=')));
        return plain;
    }
};

TEST_F(CompletionInZsh, OffersEveryCommand)
{
    const auto commands = installed::commands();
    ASSERT_FALSE(commands.empty());
    EXPECT_EQ(added("pavo "), Words(commands.begin(), commands.end()));
    EXPECT_EQ(added("pavo cam"), Words{"camera"});
}

TEST_F(CompletionInZsh, OffersEveryOption)
{
    EXPECT_EQ(withoutSigns(added("pavo --")), installed::options());
    for (const auto& command : installed::commands())
        EXPECT_EQ(withoutSigns(added("pavo " + command + " --")), installed::options(command)) << command;
}

TEST_F(CompletionInZsh, OffersTheValuesOfAnOption)
{
    EXPECT_EQ(added("pavo send --format "), (Words{"UYVY", "YUY2", "NV12", "I420", "BGRA"}));
    EXPECT_EQ(added("pavo send --matrix "), (Words{"auto", "bt601", "bt709"}));
    EXPECT_EQ(added("pavo view --format "), (Words{"YUY2", "UYVY", "NV12", "BGRx"}));
    EXPECT_EQ(added("pavo send --format=N"), Words{"--format=NV12"});
    EXPECT_EQ(added("pavo preview --graphics "), (Words{"auto", "symbols", "sixels", "kitty"}));
    EXPECT_EQ(added("pavo demo --pipewire "), (Words{"auto", "running", "private", "embedded"}));
}

TEST_F(CompletionInZsh, OffersFilesOrFoldersWhereOneIsAskedFor)
{
    EXPECT_EQ(added("pavo send --png sh"), (Words{"shot.png", "shots/"}));
    EXPECT_EQ(added("pavo camera --bundle sh"), Words{"shots/"});
}

TEST_F(CompletionInZsh, GoesOnAfterAnOption)
{
    EXPECT_EQ(added("pavo view --json --tr"), Words{"--trace"});
    EXPECT_EQ(added("pavo view --seconds 5 --tr"), Words{"--trace"});
}

}  // namespace
