#include <winsock2.h>
// winsock2.h before windows.h, which would bring the old sockets header.
#include <dbt.h>
#include <windows.h>

#include <condition_variable>
#include <deque>
#include <mutex>
#include <string>
#include <thread>

#include "platform/usb_events.h"

namespace kel::platform {
namespace {

constexpr size_t kMessageLimit = 8192;
constexpr char kWindowClass[] = "KelcmdUsbNotify";

// {A5DCBF10-6530-11D2-901F-00C04FB951ED}: the interface every USB device offers.
constexpr GUID kUsbDeviceInterface = {
    0xa5dcbf10, 0x6530, 0x11d2, {0x90, 0x1f, 0x00, 0xc0, 0x4f, 0xb9, 0x51, 0xed}};

void StartSockets() {
  static std::once_flag once;
  std::call_once(once, [] {
    WSADATA data;
    WSAStartup(MAKEWORD(2, 2), &data);
  });
}

}  // namespace

struct UsbEventSource::Impl {
  Socket socket;  // the seam: uevent messages from a test
  bool failed = false;

  // The window's thread hands events over through this queue.
  std::mutex lock;
  std::condition_variable changed;
  std::deque<UsbEvent> events;
  HWND window = nullptr;
  bool opened = false;  // the window's thread has reported
  std::thread pump;

  void Pump();
  static LRESULT CALLBACK WindowProc(HWND window, UINT message, WPARAM wparam, LPARAM lparam);
};

LRESULT CALLBACK UsbEventSource::Impl::WindowProc(HWND window, UINT message, WPARAM wparam,
                                                  LPARAM lparam) {
  auto* impl = reinterpret_cast<Impl*>(GetWindowLongPtrA(window, GWLP_USERDATA));
  if (message == WM_DEVICECHANGE && impl != nullptr &&
      (wparam == DBT_DEVICEARRIVAL || wparam == DBT_DEVICEREMOVECOMPLETE) && lparam != 0) {
    const auto* header = reinterpret_cast<const DEV_BROADCAST_HDR*>(lparam);
    if (header->dbch_devicetype == DBT_DEVTYP_DEVICEINTERFACE) {
      const auto* device = reinterpret_cast<const DEV_BROADCAST_DEVICEINTERFACE_A*>(header);
      if (const std::optional<UsbEvent> event =
              ParseDeviceInterfaceName(device->dbcc_name, wparam == DBT_DEVICEARRIVAL)) {
        const std::lock_guard<std::mutex> hold(impl->lock);
        impl->events.push_back(*event);
        impl->changed.notify_all();
      }
    }
    return TRUE;
  }
  if (message == WM_DESTROY) {
    PostQuitMessage(0);
    return 0;
  }
  return DefWindowProcA(window, message, wparam, lparam);
}

void UsbEventSource::Impl::Pump() {
  WNDCLASSEXA type{};
  type.cbSize = sizeof type;
  type.lpfnWndProc = WindowProc;
  type.hInstance = GetModuleHandleA(nullptr);
  type.lpszClassName = kWindowClass;
  RegisterClassExA(&type);  // fails harmlessly when already registered
  HWND created = CreateWindowExA(0, kWindowClass, "", 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr,
                                 type.hInstance, nullptr);
  HDEVNOTIFY notify = nullptr;
  if (created != nullptr) {
    SetWindowLongPtrA(created, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(this));
    DEV_BROADCAST_DEVICEINTERFACE_A filter{};
    filter.dbcc_size = sizeof filter;
    filter.dbcc_devicetype = DBT_DEVTYP_DEVICEINTERFACE;
    filter.dbcc_classguid = kUsbDeviceInterface;
    notify = RegisterDeviceNotificationA(created, &filter, DEVICE_NOTIFY_WINDOW_HANDLE);
    if (notify == nullptr) {
      DestroyWindow(created);
      created = nullptr;
    }
  }
  {
    const std::lock_guard<std::mutex> hold(lock);
    window = created;
    opened = true;
    changed.notify_all();
  }
  if (created == nullptr) return;
  MSG message;
  while (GetMessageA(&message, nullptr, 0, 0) > 0) {
    TranslateMessage(&message);
    DispatchMessageA(&message);
  }
  UnregisterDeviceNotification(notify);
}

UsbEventSource::UsbEventSource() : impl_(std::make_unique<Impl>()) {}

UsbEventSource::UsbEventSource(Socket socket) : UsbEventSource() {
  impl_->socket = std::move(socket);
}

UsbEventSource::~UsbEventSource() { Close(); }

bool UsbEventSource::Open() {
  Close();
  Impl& impl = *impl_;
  impl.opened = false;
  try {
    impl.pump = std::thread([&impl] { impl.Pump(); });
  } catch (const std::system_error&) {
    return false;
  }
  std::unique_lock<std::mutex> hold(impl.lock);
  impl.changed.wait(hold, [&impl] { return impl.opened; });
  if (impl.window != nullptr) return true;
  hold.unlock();
  impl.pump.join();
  return false;
}

bool UsbEventSource::Receive(UsbEvent& event, int timeout_ms) {
  Impl& impl = *impl_;
  if (impl.socket.Valid()) {
    const WaitStatus wait = WaitReadable(impl.socket, timeout_ms);
    if (wait != WaitStatus::kReadable) {
      impl.failed = wait == WaitStatus::kError || wait == WaitStatus::kException;
      return false;
    }
    std::string message(kMessageLimit, '\0');
    const IoResult got = platform::Receive(impl.socket, message.data(), message.size());
    if (got.status != IoStatus::kOk) {
      impl.failed = got.status != IoStatus::kWouldBlock;
      return false;
    }
    message.resize(got.bytes);
    const std::optional<UsbEvent> parsed = ParseUevent(message);
    if (!parsed) return false;
    event = *parsed;
    return true;
  }
  std::unique_lock<std::mutex> hold(impl.lock);
  if (impl.window == nullptr) return false;
  if (!impl.changed.wait_for(hold, std::chrono::milliseconds(timeout_ms),
                             [&impl] { return !impl.events.empty(); })) {
    return false;
  }
  event = impl.events.front();
  impl.events.pop_front();
  return true;
}

bool UsbEventSource::Failed() const {
  if (impl_->socket.Valid()) return impl_->failed;
  const std::lock_guard<std::mutex> hold(impl_->lock);
  return impl_->window == nullptr;
}

void UsbEventSource::Close() {
  Impl& impl = *impl_;
  impl.socket.Close();
  HWND window = nullptr;
  {
    const std::lock_guard<std::mutex> hold(impl.lock);
    window = impl.window;
    impl.window = nullptr;
    impl.events.clear();
  }
  // The window belongs to its thread: asked to close, it destroys itself and the thread's
  // message loop ends.
  if (window != nullptr) PostMessageA(window, WM_CLOSE, 0, 0);
  if (impl.pump.joinable()) impl.pump.join();
}

bool DatagramPair(Socket& first, Socket& second) {
  StartSockets();
  Socket a(static_cast<SocketHandle>(socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP)));
  Socket b(static_cast<SocketHandle>(socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP)));
  if (!a.Valid() || !b.Valid()) return false;
  sockaddr_in loopback{};
  loopback.sin_family = AF_INET;
  loopback.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  sockaddr_in bound_a{};
  sockaddr_in bound_b{};
  int size = sizeof bound_a;
  const auto* any = reinterpret_cast<const sockaddr*>(&loopback);
  if (bind(static_cast<SOCKET>(a.Handle()), any, sizeof loopback) != 0 ||
      bind(static_cast<SOCKET>(b.Handle()), any, sizeof loopback) != 0 ||
      getsockname(static_cast<SOCKET>(a.Handle()), reinterpret_cast<sockaddr*>(&bound_a), &size) !=
          0 ||
      (size = sizeof bound_b, getsockname(static_cast<SOCKET>(b.Handle()),
                                          reinterpret_cast<sockaddr*>(&bound_b), &size) != 0) ||
      connect(static_cast<SOCKET>(a.Handle()), reinterpret_cast<const sockaddr*>(&bound_b),
              sizeof bound_b) != 0 ||
      connect(static_cast<SOCKET>(b.Handle()), reinterpret_cast<const sockaddr*>(&bound_a),
              sizeof bound_a) != 0) {
    return false;
  }
  first = std::move(a);
  second = std::move(b);
  return true;
}

}  // namespace kel::platform
