#pragma once

#include <cstdint>

namespace kel {

/// The first of `count` consecutive ports that nothing listens on now (on any address), picked at
/// random below the usual range of outgoing ports; 0 when none was found. For tests and
/// benchmarks that start servers side by side (another program may still take a port
/// before it is used).
uint16_t FindFreePorts(int count);

}  // namespace kel
