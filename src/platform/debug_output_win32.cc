#include <windows.h>

#include <cstring>

#include "platform/debug_output.h"

namespace kel::platform {
namespace {

constexpr DWORD kBufferSize = 4096;  // the process id, then the text and its zero

// A kernel object handle, closed with the object.
class Handle {
 public:
  Handle() = default;
  explicit Handle(HANDLE handle) : handle_(handle) {}
  ~Handle() { Reset(); }
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;
  void Reset(HANDLE handle = nullptr) {
    if (handle_ != nullptr) CloseHandle(handle_);
    handle_ = handle;
  }
  HANDLE Get() const { return handle_; }

 private:
  HANDLE handle_ = nullptr;
};

}  // namespace

struct DebugOutputReader::Impl {
  Handle buffer_ready;  // set by the reader: a writer may fill the buffer
  Handle data_ready;    // set by a writer: the buffer holds a message
  Handle mapping;
  const unsigned char* view = nullptr;
  bool failed = false;
};

std::string DebugOutputPath() { return "DBWIN"; }

DebugOutputReader::DebugOutputReader() : impl_(std::make_unique<Impl>()) {}

DebugOutputReader::~DebugOutputReader() { Close(); }

bool DebugOutputReader::Open(const std::string&) {
  Close();
  Impl& impl = *impl_;
  // The buffer's events exist while a debugger reads: then this reader stays off.
  impl.buffer_ready.Reset(CreateEventA(nullptr, FALSE, FALSE, "DBWIN_BUFFER_READY"));
  if (impl.buffer_ready.Get() == nullptr || GetLastError() == ERROR_ALREADY_EXISTS) {
    impl.buffer_ready.Reset();
    return false;
  }
  impl.data_ready.Reset(CreateEventA(nullptr, FALSE, FALSE, "DBWIN_DATA_READY"));
  impl.mapping.Reset(CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0,
                                        kBufferSize, "DBWIN_BUFFER"));
  if (impl.data_ready.Get() != nullptr && impl.mapping.Get() != nullptr) {
    impl.view = static_cast<const unsigned char*>(
        MapViewOfFile(impl.mapping.Get(), FILE_MAP_READ, 0, 0, kBufferSize));
  }
  if (impl.view == nullptr) {
    Close();
    return false;
  }
  impl.failed = false;
  SetEvent(impl.buffer_ready.Get());
  return true;
}

bool DebugOutputReader::Receive(DebugMessage& message, int timeout_ms) {
  Impl& impl = *impl_;
  if (impl.view == nullptr) return false;
  const DWORD wait = WaitForSingleObject(impl.data_ready.Get(), static_cast<DWORD>(timeout_ms));
  if (wait != WAIT_OBJECT_0) {
    impl.failed = wait == WAIT_FAILED;
    return false;
  }
  DWORD pid = 0;
  std::memcpy(&pid, impl.view, sizeof pid);
  const char* text = reinterpret_cast<const char*>(impl.view + sizeof pid);
  message.pid = pid;
  message.text.assign(text, strnlen(text, kBufferSize - sizeof pid));
  SetEvent(impl.buffer_ready.Get());
  return true;
}

bool DebugOutputReader::Failed() const { return impl_->view == nullptr || impl_->failed; }

void DebugOutputReader::Close() {
  Impl& impl = *impl_;
  if (impl.view != nullptr) UnmapViewOfFile(impl.view);
  impl.view = nullptr;
  impl.mapping.Reset();
  impl.data_ready.Reset();
  impl.buffer_ready.Reset();
}

std::string ProcessName(uint32_t pid) {
  const HANDLE process = OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, pid);
  if (process == nullptr) return "";
  char path[MAX_PATH] = {};
  DWORD size = MAX_PATH;
  const BOOL ok = QueryFullProcessImageNameA(process, 0, path, &size);
  CloseHandle(process);
  if (!ok) return "";
  const std::string full(path, size);
  const size_t slash = full.find_last_of("\\/");
  return slash == std::string::npos ? full : full.substr(slash + 1);
}

bool WriteDebugOutput(const std::string&, std::string_view text) {
  OutputDebugStringA(std::string(text).c_str());
  return true;
}

}  // namespace kel::platform
