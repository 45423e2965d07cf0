#include "logging/usb_monitor.h"

#include <cstdio>

namespace kel {

std::string UsbEventText(const platform::UsbEvent& event, const UsbIdTable& names) {
  char ids[16];
  std::snprintf(ids, sizeof ids, "%04x:%04x", event.vendor, event.product);
  std::string text = (event.added ? "add " : "remove ") + event.port + " ID " + ids;
  const std::string name = UsbDeviceName(names, event.vendor, event.product);
  if (!name.empty()) text += " " + name;
  return text;
}

std::unique_ptr<platform::UsbEventSource> UsbNotifyMonitor::OpenSystemSource() {
  auto source = std::make_unique<platform::UsbEventSource>();
  if (!source->Open()) return nullptr;
  return source;
}

bool UsbNotifyMonitor::Start(Callback callback, const SourceFactory& open) {
  Stop();
  std::unique_ptr<platform::UsbEventSource> source = open ? open() : nullptr;
  if (!source) return false;
  return watcher_.Start(std::move(source),
                        [callback = std::move(callback)](platform::UsbEventSource& events) {
                          platform::UsbEvent event;
                          if (!events.Receive(event, kWatchSliceMs)) return !events.Failed();
                          callback(UsbEventText(event, UsbIds()));
                          return true;
                        });
}

}  // namespace kel
