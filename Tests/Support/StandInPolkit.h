#pragma once

#include "Tests/Support/BusService.h"

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

namespace pavo::test {

// Stands in for polkit on a PrivateSystemBus: takes the calls that polkit takes, and answers as it is told.
class StandInPolkit {
public:
    struct Question {
        std::string subjectKind;
        std::string subjectName;
        std::string sender;
        std::string action;
        std::size_t detailCount = 0;
        std::uint32_t flags = 0;
        std::string cancellation;
    };
    enum class Answer {
        grant,           // for this once
        grantForAWhile,  // with a temporary authorization, "tmpauthz7"
        deny,            // as after wrong passwords
        dismiss,         // the person closed the prompt
        challenge,       // there is nobody to ask a person
        unknownAction,   // no policy file names it
        mayNotAsk,       // the caller is not to ask
        cancelled,       // somebody took the question back
        anotherType,     // well-formed, and no answer to this question
        whenAskedAgain,  // granted together with the next question
        nothing,         // still waiting for the person
        die,             // gone in the middle of it
    };

    explicit StandInPolkit(Answer answer);

    bool isReady() const { return service_.isReady(); }
    void setAnswer(Answer answer);
    std::vector<Question> questions() const;
    std::vector<std::string> cancellations() const;
    std::vector<std::string> revocations() const;

private:
    BusService::Outcome handle(sd_bus_message* call);
    BusService::Outcome check(sd_bus_message* call);

    mutable std::mutex mutex_;
    Answer answer_;
    std::vector<Question> questions_;
    std::vector<std::string> cancellations_;
    std::vector<std::string> revocations_;
    BusMessage held_;     // the question that waits for the next one
    BusService service_;  // last: its thread uses all of the above
};

}  // namespace pavo::test
