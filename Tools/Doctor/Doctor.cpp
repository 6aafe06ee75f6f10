#include "Tools/Doctor/Doctor.h"

#include "Platform/Support/Fatal.h"

#include <algorithm>
#include <map>
#include <nlohmann/json.hpp>
#include <utility>

namespace pavo::tools {
namespace {

std::string_view nameOf(Verdict verdict)
{
    switch (verdict) {
    case Verdict::problem:
        return "problem";
    case Verdict::hint:
        return "hint";
    case Verdict::unknown:
        return "cannot tell";
    case Verdict::fine:
        break;
    }
    return "ok";
}

std::string padded(std::string_view text, std::size_t width)
{
    std::string result(text);
    result.resize(std::max(width, text.size() + 1), ' ');
    return result;
}

std::string counted(std::size_t count, const std::string& thing)
{
    return (count == 0 ? "no" : std::to_string(count)) + " " + thing + (count == 1 ? "" : "s");
}

}  // namespace

std::vector<Cause> allCauses()
{
    std::vector<Cause> causes;
    for (const auto some : {sessionCauses(), cameraCauses(), pipeWireCauses(), producerCauses(),
                            browserCauses(), programCauses()})
        causes.insert(causes.end(), some.begin(), some.end());
    return causes;
}

std::size_t Diagnosis::count(Verdict verdict) const
{
    return static_cast<std::size_t>(
        std::count_if(entries.begin(), entries.end(),
                      [verdict](const Entry& entry) { return entry.finding.verdict == verdict; }));
}

const Finding& Diagnosis::of(std::string_view id) const
{
    const auto found = std::find_if(entries.begin(), entries.end(),
                                    [id](const Entry& entry) { return entry.cause.id == id; });
    require(found != entries.end(), "no cause has this id");
    return found->finding;
}

Diagnosis diagnose(const System& system)
{
    Examination examination(system);
    // Within a verdict in the causes' own order.
    std::multimap<Verdict, Diagnosis::Entry> byVerdict;
    for (const Cause& cause : allCauses()) {
        Finding finding = cause.check(examination);
        const Verdict verdict = finding.verdict;
        byVerdict.emplace(verdict, Diagnosis::Entry{cause, std::move(finding)});
    }
    Diagnosis diagnosis;
    for (auto& [verdict, entry] : byVerdict)
        diagnosis.entries.push_back(std::move(entry));
    return diagnosis;
}

std::string asText(const Diagnosis& diagnosis)
{
    constexpr std::size_t kVerdictWidth = 13;
    constexpr std::size_t kIdWidth = 27;
    std::string text;
    for (const auto& [cause, finding] : diagnosis.entries) {
        text +=
            padded(nameOf(finding.verdict), kVerdictWidth) + padded(cause.id, kIdWidth) + finding.text + "\n";
        if (!finding.remedy.empty()) text += std::string(kVerdictWidth, ' ') + "-> " + finding.remedy + "\n";
    }
    const std::size_t unknown = diagnosis.count(Verdict::unknown);
    return text + "\n" + counted(diagnosis.count(Verdict::problem), "problem") + ", " +
           counted(diagnosis.count(Verdict::hint), "hint") + ", " +
           std::to_string(diagnosis.count(Verdict::fine)) + " causes ruled out" +
           (unknown == 0 ? "" : ", " + std::to_string(unknown) + " that cannot be told") + ".\n";
}

std::string asText(const std::vector<Cause>& causes)
{
    std::string text;
    for (const Cause& cause : causes)
        text += std::string(cause.id) + "\n    Seen:   " + std::string(cause.symptom) +
                ".\n    Wrong:  " + std::string(cause.meaning) +
                ".\n    To do:  " + std::string(cause.remedy) + ".\n";
    return text;
}

std::vector<nlohmann::json> asEvents(const Diagnosis& diagnosis)
{
    std::vector<nlohmann::json> events;
    for (const auto& [cause, finding] : diagnosis.entries)
        events.push_back({{"event", "finding"},
                          {"id", cause.id},
                          {"verdict", nameOf(finding.verdict)},
                          {"text", finding.text},
                          {"remedy", finding.remedy}});
    events.push_back({{"event", "summary"},
                      {"problems", diagnosis.count(Verdict::problem)},
                      {"hints", diagnosis.count(Verdict::hint)},
                      {"unknown", diagnosis.count(Verdict::unknown)},
                      {"fine", diagnosis.count(Verdict::fine)}});
    return events;
}

std::vector<nlohmann::json> asEvents(const std::vector<Cause>& causes)
{
    std::vector<nlohmann::json> events;
    for (const Cause& cause : causes)
        events.push_back({{"event", "cause"},
                          {"id", cause.id},
                          {"symptom", cause.symptom},
                          {"meaning", cause.meaning},
                          {"remedy", cause.remedy}});
    return events;
}

}  // namespace pavo::tools
