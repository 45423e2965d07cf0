#pragma once

#include <string>
#include <string_view>

namespace kel {

/// The usage text, filled with the current settings.
std::string UsageText();

/// The console-mode banner, filled with the current settings.
std::string BannerText();

/// The whole program: settings, options, services, batch or console mode, shutdown.
/// Returns the process exit status.
int KelcmdMain(int argc, char** argv);

}  // namespace kel
