#pragma once

/// What the one port of all file shares may be, and what it is until someone changes it.
namespace core {

constexpr int kLeastSharePort = 1024;
constexpr int kMostSharePort = 65535;
constexpr int kDefaultSharePort = 9800;

} // namespace core
