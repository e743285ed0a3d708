#include <frame/message.h>

namespace frame {

constinit const MsgIds MsgIds::none{}; // initialised before any static that copies it

} // namespace frame
