#include <frame/message.h>

namespace frame {

constinit const MsgIds MsgIds::none{}; // there before any static that takes a copy

} // namespace frame
