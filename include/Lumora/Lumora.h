// Lumora: the GPU of a video-editing host. One header for the whole exported interface.
#pragma once

#include "Lumora/Device.h"
#include "Lumora/DeviceSuite.h"
#include "Lumora/EventPoll.h"
#include "Lumora/Export.h"
#include "Lumora/FrameCache.h"
#include "Lumora/ImageOperations.h"
#include "Lumora/Lifecycle.h"
#include "Lumora/MemoryManager.h"
#include "Lumora/OpenCLModuleLoader.h"
#include "Lumora/PixelFormats.h"
#include "Lumora/Qualification.h"
#include "Lumora/Queues.h"
#include "Lumora/Results.h"
#include "Lumora/Runtime.h"
#include "Lumora/Textures.h"
