#pragma once

namespace ui {
namespace common {

/// Makes the images and the icon font of this library known to the resource system. A static
/// library's resources are otherwise left out by the linker. Cheap, may be called again.
void initResources();

} // namespace common
} // namespace ui
