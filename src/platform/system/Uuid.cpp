#include <frameloom/platform/system/Uuid.h>

#include <uuid/uuid.h>

namespace frameloom::platform {

Uuid Uuid::random() {
  Uuid uuid;
  uuid_generate_random(uuid.bytes.data());
  return uuid;
}

std::string Uuid::uuidString() const {
  char text[37];
  uuid_unparse_upper(bytes.data(), text);
  return std::string(text, 36);
}

} // namespace frameloom::platform
