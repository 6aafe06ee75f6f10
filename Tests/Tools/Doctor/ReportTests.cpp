// What the doctor says, and where else it is written.

#include "Tests/Support/ChildProcess.h"
#include "Tests/Tools/Doctor/SystemDouble.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <sstream>

namespace pavo::test {
namespace {

using namespace pavo::tools;
using testing::HasSubstr;
using testing::StartsWith;

// One thing of each kind.
class TroubledSystem final : public SystemDouble {
public:
    TroubledSystem()
    {
        addCamera(Examination::kDaemon, 41);
        status.value().producer.reset();
        descriptors.reset();
    }
};

std::vector<std::string> linesOf(const std::string& text)
{
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

TEST(DoctorReport, PutsProblemsFirstAndSumsUp)
{
    const auto lines = linesOf(asText(diagnose(TroubledSystem())));
    ASSERT_GT(lines.size(), 6U);
    EXPECT_THAT(lines[0], StartsWith("problem      two-cameras                PipeWire has 2 cameras"));
    EXPECT_THAT(lines[1], StartsWith("             -> end all cameras but one"));
    EXPECT_THAT(lines[2], StartsWith("hint         no-producer                No producer is connected"));
    EXPECT_THAT(lines[3], StartsWith("             -> start a producer"));
    EXPECT_THAT(lines[4], StartsWith("cannot tell  descriptors-exhausted      "));
    EXPECT_THAT(lines[5], StartsWith("ok           "));
    EXPECT_EQ(lines.back(), "1 problem, 1 hint, " + std::to_string(allCauses().size() - 3) +
                                " causes ruled out, 1 that cannot be told.");
}

TEST(DoctorReport, SumsUpThatAllIsWell)
{
    const auto lines = linesOf(asText(diagnose(SystemDouble())));
    EXPECT_EQ(lines.back(),
              "no problems, no hints, " + std::to_string(allCauses().size()) + " causes ruled out.");
}

TEST(DoctorReport, IsOneObjectForEachFindingAndASummary)
{
    const auto events = asEvents(diagnose(TroubledSystem()));
    ASSERT_EQ(events.size(), allCauses().size() + 1);
    EXPECT_EQ(events.front()["event"], "finding");
    EXPECT_EQ(events.front()["id"], "two-cameras");
    EXPECT_EQ(events.front()["verdict"], "problem");
    EXPECT_THAT(events.front()["text"].get<std::string>(), StartsWith("PipeWire has 2 cameras"));
    EXPECT_THAT(events.front()["remedy"].get<std::string>(), StartsWith("end all cameras but one"));
    EXPECT_EQ(events[1]["verdict"], "hint");
    EXPECT_EQ(events[2]["verdict"], "cannot tell");
    EXPECT_EQ(events[3]["verdict"], "ok");
    EXPECT_EQ(events.back(), (nlohmann::json{{"event", "summary"},
                                             {"problems", 1},
                                             {"hints", 1},
                                             {"unknown", 1},
                                             {"fine", allCauses().size() - 3}}));
}

TEST(DoctorReport, SaysOneSentenceOfEachFinding)
{
    for (const auto& [cause, finding] : diagnose(TroubledSystem()).entries) {
        EXPECT_TRUE(finding.text.ends_with('.')) << cause.id << ": " << finding.text;
        const bool isComplaint = finding.verdict == Verdict::problem || finding.verdict == Verdict::hint;
        EXPECT_EQ(finding.remedy.empty(), !isComplaint) << cause.id;
    }
}

TEST(DoctorReport, ListNamesEachCause)
{
    const std::string text = asText(allCauses());
    const auto events = asEvents(allCauses());
    ASSERT_EQ(events.size(), allCauses().size());
    for (std::size_t index = 0; index < events.size(); ++index) {
        const Cause cause = allCauses()[index];
        EXPECT_THAT("\n" + text, HasSubstr("\n" + std::string(cause.id) + "\n"));
        EXPECT_EQ(events[index], (nlohmann::json{{"event", "cause"},
                                                 {"id", cause.id},
                                                 {"symptom", cause.symptom},
                                                 {"meaning", cause.meaning},
                                                 {"remedy", cause.remedy}}));
    }
}

// The table is what people read who have no camera yet to ask.
TEST(DoctorReport, IsTheTableInTheDocuments)
{
    std::vector<std::string> expected;
    for (const Cause& cause : allCauses())
        expected.push_back("| " + std::string(cause.symptom) + " | `" + std::string(cause.id) + "` | " +
                           std::string(cause.meaning) + " | " + std::string(cause.remedy) + " |");
    std::vector<std::string> rows;
    for (const auto& line : linesOf(readFile(PAVO_SOURCE_FOLDER "/Documentation/Troubleshooting.md")))
        if (line.starts_with("| ") && line.find(" | `") != std::string::npos) rows.push_back(line);
    EXPECT_EQ(rows, expected);
}

}  // namespace
}  // namespace pavo::test
