// The platform's debug output and run log, in the program's own version, which the manager is linked with: a million
// schedules neither write to a disk nor wait for a thread.
#include "subject.h"

#include <lrt/run-log-agent.h>
#include <vdl/debug.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>

using simulation::Subject;

void vdlDebugOutput0(const vdlDebugChunk& chunk, const char* format, ...) noexcept {
    Subject* const subject = Subject::current();
    if (subject == nullptr) return;
    static constexpr char placeFormat[] = "%s:%d:%s(): ";
    std::va_list arguments;
    va_start(arguments, format);
    std::string place;
    if (std::strncmp(format, placeFormat, sizeof placeFormat - 1) == 0) {
        // Line numbers are nobody's promise.
        place = va_arg(arguments, const char*);
        static_cast<void>(va_arg(arguments, int));
        ((place += ' ') += va_arg(arguments, const char*)) += "(): ";
        format += sizeof placeFormat - 1;
    }
    char text[1024];
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    subject->line(chunk.levelWord, place, text);
}

namespace lrt {

struct RunLogAgentImpl::State {};

RunLogAgentImpl::RunLogAgentImpl() : state_(nullptr) {}

RunLogAgentImpl& RunLogAgentImpl::getInstance() {
    static RunLogAgentImpl& agent = *new RunLogAgentImpl;
    return agent;
}

std::string RunLogAgentImpl::getLogCurrentUTCTime() const { return Subject::current()->time(); }

void RunLogAgentImpl::writeRunLog(const RunLogRecord& record) { Subject::current()->record(record); }

} // namespace lrt
