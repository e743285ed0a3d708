#include <tvservice/messages.h>

namespace tvservice {

TVSERVICE_MESSAGES(GENRPC_MESSAGE_TABLE)

frame::MessageSet messageSet() {
    static constexpr frame::MessageDescription messages[] = {TVSERVICE_MESSAGES(GENRPC_MESSAGE_DESCRIPTION)};
    return {messages, std::size(messages)};
}

} // namespace tvservice
