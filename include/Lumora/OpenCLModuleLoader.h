// How the host's other libraries contribute OpenCL programs: each constructs a static OpenCLModuleLoader
// with its program texts during its own start-up, and Lumora builds them for its OpenCL devices on demand.
#pragma once

#include "Lumora/Export.h"

namespace LM {

class LM_API OpenCLModuleLoader {
 public:
  // Registers `count` program source texts. Each text is one module, named by the first line that starts
  // with the marker "// module:" (the rest of that line, blanks trimmed: "// module: Fills" names Fills);
  // a text without such a line, or with nothing after the marker, and a null entry are left out. A later
  // text of the same name replaces an earlier one. The texts are copied, so the array need not outlive
  // the call. Null `sources` or a count below 1 registers nothing. A registration after Lumora has built
  // its module tables makes it rebuild the OpenCL table in the background; a lookup that comes first
  // rebuilds it on the spot, so the new modules are seen either way.
  OpenCLModuleLoader(const char** sources, int count);
};

}  // namespace LM
