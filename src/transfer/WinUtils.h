// Utilities for the named kernel objects shared with the player application:
// named shared memory, and per-instance names.
#pragma once

#include "diag/LineResult.h"
#include "platform/MappedView.h"
#include "platform/SharedSecurity.h"
#include "platform/UniqueResource.h"

#include <windows.h>

#include <cstdint>
#include <string>

namespace quillon::WinUtils {

// Opens the named mapping, or creates it (page-file backed, zero-filled) under
// the shared security attributes, and maps `size` bytes of it into `out`. An
// existing mapping's size is not checked: mapping more than it holds fails.
LineResult CreateMemoryMappingFile(MappedView& out, size_t size, const wchar_t* name);

// Maps `size` bytes of `mapping` into `out`; on failure the mapping is closed.
LineResult MemMapView(MappedView& out, size_t size, UniqueHandle mapping);

// Name of an object that belongs to one instance: the prefix followed directly
// by the decimal slot number ("Global\QuillonCallback1.8.0" + 3).
std::wstring PerInstanceName(const wchar_t* prefix, int32_t slot);

}  // namespace quillon::WinUtils
