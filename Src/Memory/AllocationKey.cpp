#include "Memory/AllocationKey.h"

#include <zelmediatypes/PixelFormatTable.h>

namespace LM {

std::uint64_t AllocationKey::ByteSize() const {
  if (size != 0) return size;
  if (width > 0) return zelmediatypes::PixelFormatSize(format, width, height);
  return 0;
}

}  // namespace LM
