#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "config/usb_ids.h"
#include "logging/source_watcher.h"
#include "platform/usb_events.h"

namespace kel {

/// The text of a USB-notify note:
///   "add 1-1.2 ID 0403:6001 Future Technology Devices International, Ltd FT232 Serial
///    (UART) IC" (one line), "remove 1-1.2 ID 0403:6001 ..."
/// the names from the usb.ids table, left out when it does not know the device.
std::string UsbEventText(const platform::UsbEvent& event, const UsbIdTable& names);

/// Watches USB devices come and go (platform::UsbEventSource) on a thread of its own and
/// hands each event's text to a callback.
class UsbNotifyMonitor {
 public:
  using Callback = std::function<void(std::string_view text)>;
  /// Makes the source a start watches; null when none can be opened.
  using SourceFactory = std::function<std::unique_ptr<platform::UsbEventSource>()>;

  /// The system's own notices (platform::UsbEventSource::Open).
  static std::unique_ptr<platform::UsbEventSource> OpenSystemSource();

  /// Starts watching the source `open` makes. False, and not running, when it makes none
  /// (the system refused) or no thread could be started.
  bool Start(Callback callback, const SourceFactory& open = OpenSystemSource);
  /// Stops watching and closes the source. Harmless when not running.
  void Stop() { watcher_.Stop(); }
  bool Running() const { return watcher_.Running(); }

 private:
  SourceWatcher<platform::UsbEventSource> watcher_;
};

}  // namespace kel
