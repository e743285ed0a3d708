#include <mmservice/messages.h>

namespace mmservice {

MMSERVICE_MESSAGES(GENRPC_MESSAGE_TABLE)

frame::MessageSet messageSet() {
    static constexpr frame::MessageDescription messages[] = {MMSERVICE_MESSAGES(GENRPC_MESSAGE_DESCRIPTION)};
    return {messages, std::size(messages)};
}

} // namespace mmservice
