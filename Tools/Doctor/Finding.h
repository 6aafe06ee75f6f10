#pragma once

#include <string>
#include <utility>

namespace pavo::tools {

enum class Verdict {
    problem,  // this is why the camera is not seen, or seen badly
    hint,     // may be why, for some programs, or is worth knowing
    unknown,  // cannot be told here, and `text` says why
    fine
};

// What the check for one cause has found.
struct Finding {
    Verdict verdict = Verdict::fine;
    std::string text;    // one sentence, with what was found
    std::string remedy;  // what to do; for problems and hints

    static Finding problem(std::string text, std::string remedy)
    {
        return {Verdict::problem, std::move(text), std::move(remedy)};
    }
    static Finding hint(std::string text, std::string remedy)
    {
        return {Verdict::hint, std::move(text), std::move(remedy)};
    }
    static Finding unknown(std::string why) { return {Verdict::unknown, std::move(why), {}}; }
    static Finding fine(std::string text) { return {Verdict::fine, std::move(text), {}}; }
};

}  // namespace pavo::tools
