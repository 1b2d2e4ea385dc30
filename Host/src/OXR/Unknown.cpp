// The out-of-line destructor makes the host library the one home of OXRUnknown's virtual table and type
// information, which every interface shares.
#include "OXR/Unknown.h"

namespace OXR {

OXRUnknown::~OXRUnknown() = default;

}  // namespace OXR
