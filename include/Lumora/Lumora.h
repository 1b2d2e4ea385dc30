// Lumora: the GPU of a video-editing host. One header for the whole exported interface.
#pragma once

#include "Lumora/Export.h"
#include "Lumora/Lifecycle.h"
#include "Lumora/OpenCLModuleLoader.h"
#include "Lumora/PixelFormats.h"
#include "Lumora/Runtime.h"
