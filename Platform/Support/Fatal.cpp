#include "Platform/Support/Fatal.h"

#include <cstdio>
#include <cstdlib>

namespace pavo {

void fatalError(std::string_view message, FatalSite site)
{
    std::fprintf(stderr, "%.*s:%u: Fatal error: %.*s\n", static_cast<int>(site.file.size()), site.file.data(),
                 site.line, static_cast<int>(message.size()), message.data());
    std::abort();
}

}  // namespace pavo
