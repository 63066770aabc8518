#include <hyl/message.h>

namespace hyl::v2 {

Message::~Message() = default;

}  // namespace hyl::v2
