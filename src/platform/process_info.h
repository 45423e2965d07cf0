#pragma once

namespace kel::platform {

/// The number of threads the process runs now, the calling one included; -1 when the
/// system does not tell.
int CountThreads();

/// The number of open descriptors (handles) of the process now, counted the same way
/// every time so that two counts compare; -1 when the system does not tell.
int CountOpenDescriptors();

/// The id of this process.
unsigned CurrentProcessId();

}  // namespace kel::platform
