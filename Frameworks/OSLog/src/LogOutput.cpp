#include "LogOutput.h"

#include <os/log_printf.h>

// The place in this file that calls the journal says nothing about where a message comes from.
#define SD_JOURNAL_SUPPRESS_LOCATION
#include <sys/syslog.h>
#include <sys/uio.h>
#include <systemd/sd-journal.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>

#include "LogObject.h"

namespace pavo::oslog {

namespace {

constexpr const char* kJournalSocket = "/run/systemd/journal/socket";

const char* nameOf(os_log_type_t type)
{
    switch (type) {
    case OS_LOG_TYPE_INFO:
        return "Info";
    case OS_LOG_TYPE_DEBUG:
        return "Debug";
    case OS_LOG_TYPE_ERROR:
        return "Error";
    case OS_LOG_TYPE_FAULT:
        return "Fault";
    case OS_LOG_TYPE_DEFAULT:
        break;
    }
    return "Default";
}

int priorityOf(os_log_type_t type)
{
    switch (type) {
    case OS_LOG_TYPE_INFO:
        return LOG_INFO;
    case OS_LOG_TYPE_DEBUG:
        return LOG_DEBUG;
    case OS_LOG_TYPE_ERROR:
        return LOG_ERR;
    case OS_LOG_TYPE_FAULT:
        return LOG_CRIT;
    case OS_LOG_TYPE_DEFAULT:
        break;
    }
    return LOG_NOTICE;
}

std::atomic<bool> isStandardErrorTheFallback = true;

bool isStandardErrorChosen()
{
    const char* const choice = secure_getenv("PAVO_LOG");
    return choice && std::string_view(choice) == "stderr";
}

bool sendToJournal(const os_log_s& log, os_log_type_t type, std::string_view message)
{
    std::array<std::string, 6> fields = {
        "MESSAGE=" + std::string(message),
        "PRIORITY=" + std::to_string(priorityOf(type)),
        std::string("SYSLOG_IDENTIFIER=") + program_invocation_short_name,
        std::string("SUBSYSTEM=") + log.subsystem,
        std::string("CATEGORY=") + log.category,
        std::string("OS_LOG_TYPE=") + nameOf(type),
    };
    std::array<iovec, fields.size()> parts{};
    for (std::size_t i = 0; i < fields.size(); ++i)
        parts[i] = {fields[i].data(), fields[i].size()};
    return sd_journal_sendv(parts.data(), static_cast<int>(parts.size())) >= 0;
}

std::string timeNow()
{
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    tm utc{};
    gmtime_r(&now.tv_sec, &utc);
    char seconds[32];
    std::strftime(seconds, sizeof seconds, "%Y-%m-%dT%H:%M:%S", &utc);
    char text[64];
    std::snprintf(text, sizeof text, "%s.%06ldZ", seconds, now.tv_nsec / 1000);
    return text;
}

// A message is one line, whatever is in it: others may have chosen parts of it, and must not be able to write
// lines of their own or to speak to the terminal.
void appendOneLine(std::string& line, std::string_view message)
{
    for (const char c : message) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '\n') {
            line += "\\n";
        } else if ((byte < 0x20 && c != '\t') || byte == 0x7F) {
            char escape[8];
            std::snprintf(escape, sizeof escape, "\\x%02x", byte);
            line += escape;
        } else {
            line += c;
        }
    }
}

void writeToStandardError(const os_log_s& log, os_log_type_t type, std::string_view message)
{
    std::string line = timeNow() + " " + std::to_string(getpid()) + " " + nameOf(type) + " [" +
                       log.subsystem + ":" + log.category + "] ";
    appendOneLine(line, message);
    line += '\n';
    std::string_view rest = line;
    while (!rest.empty()) {
        const auto written = ::write(STDERR_FILENO, rest.data(), rest.size());
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return;  // nobody reads, and there is nowhere to say so
        rest.remove_prefix(static_cast<std::size_t>(written));
    }
}

}  // namespace

void write(const os_log_s& log, os_log_type_t type, std::string_view message)
{
    const bool isChosen = isStandardErrorChosen();
    if (!isChosen && access(kJournalSocket, F_OK) == 0 && sendToJournal(log, type, message)) return;
    if (isChosen || isStandardErrorTheFallback) writeToStandardError(log, type, message);
}

}  // namespace pavo::oslog

void os_log_set_standard_error_fallback(bool isWanted)
{
    pavo::oslog::isStandardErrorTheFallback = isWanted;
}
