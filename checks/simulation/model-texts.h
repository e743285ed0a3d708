// The reference's lines.
#pragma once

#include "model.h"

#include <string>
#include <type_traits>

namespace simulation {

enum Severity : unsigned { Failure = 1000, Warning = 3000, Progress = 4000, Trace = 5000 };

inline constexpr unsigned managerModule = 0x0102;

inline const char* stepText(Model::Phase phase, bool sent) {
    if (phase <= Model::StopsSent) return sent ? "ResOperation::WaitingStop" : "ResOperation::SendingStop";
    return sent ? "ResOperation::WaitingStart" : "ResOperation::SendingStart";
}
inline const char* stepText(const Model::Bundle& bundle) { return stepText(bundle.phase, bundle.sent()); }

inline const char* servicesText(long services) {
    static constexpr const char* texts[] = {"ResResponse::ResponseNO", "ResResponse::ResponseMM",
                                            "ResResponse::ResponseTV", "ResResponse::ResponseBOTH"};
    return services >= 0 && services <= 3 ? texts[services] : "Unsupported Response";
}
inline const char* awaitedText(const Model::Bundle& bundle) { return servicesText(bundle.sent() ? bundle.awaited : 0); }

inline void appendPart(std::string& text, const char* part) { text += part; }
inline void appendPart(std::string& text, const std::string& part) { text += part.c_str(); } // lines end at a NUL
template <typename Number>
requires std::is_integral_v<Number>
void appendPart(std::string& text, Number part) { text += std::to_string(part); }

template <typename... Parts> void Model::line(unsigned severity, const char* function, const Parts&... parts) {
    if (!logged(severity)) return;
    std::string text;
    (appendPart(text, parts), ...);
    noteLine(managerModule << 16 | severity,
             function == nullptr ? std::string() : std::string("resource-manager.cpp ") + function + "(): ", text);
}

} // namespace simulation
