#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <os/log.h>
#include <os/log_printf.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <sstream>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "LogFixture.h"

extern "C" void logFromC(void);

namespace {

// Stands in for the journal of the system.
struct Journal {
    bool exists = false;
    int answer = 0;
    std::vector<std::vector<std::string>> entries;
};
Journal journal;

}  // namespace

extern "C" int __real_access(const char* path, int mode);

extern "C" int __wrap_access(const char* path, int mode)
{
    if (std::string_view(path) != "/run/systemd/journal/socket") return __real_access(path, mode);
    errno = ENOENT;
    return journal.exists ? 0 : -1;
}

extern "C" int __wrap_sd_journal_sendv(const iovec* parts, int count)
{
    auto& entry = journal.entries.emplace_back();
    for (int i = 0; i < count; ++i)
        entry.emplace_back(static_cast<const char*>(parts[i].iov_base), parts[i].iov_len);
    return journal.answer;
}

namespace {

using testing::Contains;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::SizeIs;

class Log : public pavo::test::LogFixture {
protected:
    Log() { journal = {}; }

    static void useJournal()
    {
        unsetenv("PAVO_LOG");
        journal.exists = true;
    }

    const os_log_t log_ = os_log_create("com.example.test", "Log");
};

TEST_F(Log, TypesHaveTheirFixedValues)
{
    EXPECT_EQ(sizeof(os_log_type_t), 1U);
    EXPECT_EQ(OS_LOG_TYPE_DEFAULT, 0x00);
    EXPECT_EQ(OS_LOG_TYPE_INFO, 0x01);
    EXPECT_EQ(OS_LOG_TYPE_DEBUG, 0x02);
    EXPECT_EQ(OS_LOG_TYPE_ERROR, 0x10);
    EXPECT_EQ(OS_LOG_TYPE_FAULT, 0x11);
}

TEST_F(Log, TheSamePairIsTheSameObject)
{
    EXPECT_EQ(os_log_create("com.example.test", "Log"), log_);
    EXPECT_NE(os_log_create("com.example.test", "Other"), log_);
    EXPECT_NE(os_log_create("com.example.other", "Log"), log_);
    EXPECT_NE(os_log_create("ab", "c"), os_log_create("a", "bc"));
    EXPECT_EQ(os_log_create(nullptr, nullptr), os_log_create("", ""));
}

TEST_F(Log, TheSamePairIsTheSameObjectInEveryThread)
{
    std::vector<os_log_t> logs(4);
    std::vector<std::thread> threads;
    for (auto& log : logs)
        threads.emplace_back(
            [&log] { log = os_log_create("com.example.test", "made by whoever comes first"); });
    for (auto& thread : threads)
        thread.join();
    for (const auto log : logs)
        EXPECT_EQ(log, logs.front());
}

TEST_F(Log, EveryTypeButDebugIsEnabled)
{
    for (const auto type : {OS_LOG_TYPE_DEFAULT, OS_LOG_TYPE_INFO, OS_LOG_TYPE_ERROR, OS_LOG_TYPE_FAULT}) {
        EXPECT_TRUE(os_log_type_enabled(log_, type));
        EXPECT_TRUE(os_log_type_enabled(OS_LOG_DEFAULT, type));
    }
    EXPECT_FALSE(os_log_type_enabled(log_, OS_LOG_TYPE_DEBUG));
}

TEST_F(Log, DebugIsEnabledByTheEnvironment)
{
    setenv("OS_ACTIVITY_MODE", "debug", 1);
    EXPECT_TRUE(os_log_type_enabled(log_, OS_LOG_TYPE_DEBUG));
    setenv("OS_ACTIVITY_MODE", "disable", 1);
    EXPECT_FALSE(os_log_type_enabled(log_, OS_LOG_TYPE_DEBUG));
}

TEST_F(Log, WritesADebugMessageOnlyWhereDebugIsEnabled)
{
    const auto write = [this] {
        os_log_printf(log_, OS_LOG_TYPE_DEBUG, "detail");
        std::uint8_t noItems[] = {0, 0};
        _os_log_impl(nullptr, log_, OS_LOG_TYPE_DEBUG, "another detail", noItems, sizeof noItems);
    };
    EXPECT_EQ(captured(write), "");
    setenv("OS_ACTIVITY_MODE", "debug", 1);
    EXPECT_THAT(captured(write), MatchesRegex(".* Debug \\[com.example.test:Log\\] detail\n"
                                              ".* Debug \\[com.example.test:Log\\] another detail\n"));
}

TEST_F(Log, TheDisabledLogWritesNothing)
{
    setenv("OS_ACTIVITY_MODE", "debug", 1);
    EXPECT_FALSE(os_log_type_enabled(OS_LOG_DISABLED, OS_LOG_TYPE_FAULT));
    EXPECT_EQ(captured([] { os_log_printf(OS_LOG_DISABLED, OS_LOG_TYPE_FAULT, "unseen"); }), "");
}

TEST_F(Log, WritesOneLineWithTimeProcessTypeAndOrigin)
{
    const auto line = captured([this] { os_log_printf(log_, OS_LOG_TYPE_DEFAULT, "%s %d", "ready", 60); });
    EXPECT_THAT(line, MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{6}Z " +
                                   std::to_string(getpid()) +
                                   " Default \\[com\\.example\\.test:Log\\] ready 60\n"));
}

TEST_F(Log, NamesEachType)
{
    for (const auto& [type, name] : std::vector<std::pair<os_log_type_t, std::string>>{
             {OS_LOG_TYPE_INFO, "Info"}, {OS_LOG_TYPE_ERROR, "Error"}, {OS_LOG_TYPE_FAULT, "Fault"}})
        EXPECT_THAT(captured([this, kind = type] { os_log_printf(log_, kind, "text"); }),
                    MatchesRegex(".* " + name + " \\[com.example.test:Log\\] text\n"));
}

TEST_F(Log, TheDefaultLogHasNoOrigin)
{
    EXPECT_THAT(captured([] { os_log_printf(OS_LOG_DEFAULT, OS_LOG_TYPE_DEFAULT, "text"); }),
                MatchesRegex(".* Default \\[:\\] text\n"));
}

TEST_F(Log, AMessageCannotEndItsLineOrSpeakToTheTerminal)
{
    EXPECT_THAT(captured([this] { os_log_printf(log_, OS_LOG_TYPE_DEFAULT, "a\nb\x1b[31mc\td…"); }),
                MatchesRegex(".*\\] a\\\\nb\\\\x1b\\[31mc\td…\n"));
}

TEST_F(Log, WritesALongMessageWhole)
{
    const std::string text(100'000, 'x');
    const auto line =
        captured([this, &text] { os_log_printf(log_, OS_LOG_TYPE_DEFAULT, "%s", text.c_str()); });
    EXPECT_TRUE(line.ends_with("] " + text + "\n"));
}

TEST_F(Log, TheLinesOfSeveralThreadsStayWhole)
{
    constexpr int perThread = 100;
    const auto lines = captured([this] {
        std::vector<std::thread> threads;
        for (const char letter : {'a', 'b', 'c', 'd'})
            threads.emplace_back([this, letter] {
                for (int i = 0; i < perThread; ++i)
                    os_log_printf(log_, OS_LOG_TYPE_DEFAULT, "%s", std::string(200, letter).c_str());
            });
        for (auto& thread : threads)
            thread.join();
    });
    std::istringstream stream(lines);
    int count = 0;
    for (std::string line; std::getline(stream, line); ++count) {
        const auto text = line.substr(line.find("] ") + 2);
        EXPECT_EQ(text, std::string(200, text.empty() ? '?' : text.front()));
    }
    EXPECT_EQ(count, 4 * perThread);
}

TEST_F(Log, KeepsErrnoAndTellsIt)
{
    const auto line = captured([this] {
        errno = EACCES;
        os_log_printf(log_, OS_LOG_TYPE_ERROR, "open: %m");
        EXPECT_EQ(errno, EACCES);
    });
    EXPECT_THAT(line, MatchesRegex(".*\\] open: Permission denied\n"));
}

TEST_F(Log, IsUsableFromC)
{
    EXPECT_THAT(captured(logFromC), MatchesRegex(".* Fault \\[:\\] from C\n"));
}

TEST_F(Log, WritesToTheJournalWhereThereIsOne)
{
    useJournal();
    EXPECT_EQ(captured([this] { os_log_printf(log_, OS_LOG_TYPE_DEFAULT, "first\nsecond"); }), "");
    ASSERT_THAT(journal.entries, SizeIs(1));
    const std::vector<std::string> expected = {"MESSAGE=first\nsecond",
                                               "PRIORITY=5",
                                               std::string("SYSLOG_IDENTIFIER=") +
                                                   program_invocation_short_name,
                                               "SUBSYSTEM=com.example.test",
                                               "CATEGORY=Log",
                                               "OS_LOG_TYPE=Default"};
    EXPECT_EQ(journal.entries.front(), expected);
}

TEST_F(Log, GivesEachTypeItsPriorityInTheJournal)
{
    useJournal();
    setenv("OS_ACTIVITY_MODE", "debug", 1);
    for (const auto& [type, field] :
         std::vector<std::pair<os_log_type_t, std::string>>{{OS_LOG_TYPE_DEFAULT, "PRIORITY=5"},
                                                            {OS_LOG_TYPE_INFO, "PRIORITY=6"},
                                                            {OS_LOG_TYPE_DEBUG, "PRIORITY=7"},
                                                            {OS_LOG_TYPE_ERROR, "PRIORITY=3"},
                                                            {OS_LOG_TYPE_FAULT, "PRIORITY=2"}}) {
        os_log_printf(log_, type, "text");
        EXPECT_THAT(journal.entries.back(), Contains(field));
    }
}

TEST_F(Log, PassesTheJournalByWhereTheEnvironmentSaysSo)
{
    journal.exists = true;
    EXPECT_THAT(captured([this] { os_log_printf(log_, OS_LOG_TYPE_DEFAULT, "text"); }),
                MatchesRegex(".*\\] text\n"));
    EXPECT_THAT(journal.entries, IsEmpty());
}

TEST_F(Log, WritesToStandardErrorWhereTheJournalIsAbsentOrFails)
{
    useJournal();
    journal.exists = false;
    EXPECT_THAT(captured([this] { os_log_printf(log_, OS_LOG_TYPE_DEFAULT, "absent"); }),
                MatchesRegex(".*\\] absent\n"));
    journal.exists = true;
    journal.answer = -ENOBUFS;
    EXPECT_THAT(captured([this] { os_log_printf(log_, OS_LOG_TYPE_DEFAULT, "fails"); }),
                MatchesRegex(".*\\] fails\n"));
    EXPECT_THAT(journal.entries, SizeIs(1));
}

TEST_F(Log, LeavesStandardErrorAloneWhereThatIsAskedFor)
{
    useJournal();
    journal.exists = false;
    os_log_set_standard_error_fallback(false);
    EXPECT_EQ(captured([this] { os_log_printf(log_, OS_LOG_TYPE_FAULT, "absent"); }), "");
    setenv("PAVO_LOG", "stderr", 1);
    EXPECT_THAT(captured([this] { os_log_printf(log_, OS_LOG_TYPE_DEFAULT, "chosen"); }),
                MatchesRegex(".*\\] chosen\n"));
    unsetenv("PAVO_LOG");
    os_log_set_standard_error_fallback(true);
    EXPECT_THAT(captured([this] { os_log_printf(log_, OS_LOG_TYPE_DEFAULT, "again"); }),
                MatchesRegex(".*\\] again\n"));
}

}  // namespace
