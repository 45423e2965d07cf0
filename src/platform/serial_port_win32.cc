#include <windows.h>

#include "platform/serial_port.h"

namespace kel::platform {
namespace {

HANDLE Handle(intptr_t handle) { return reinterpret_cast<HANDLE>(handle); }

// A bare name such as "COM3" goes through the device namespace, which also reaches
// COM10 and above; a name that already is a path is used as it is.
std::string DevicePath(const std::string& name) {
  if (name.find_first_of("\\/:") != std::string::npos) return name;
  return "\\\\.\\" + name;
}

std::string OpenError(DWORD error) {
  switch (error) {
    case ERROR_FILE_NOT_FOUND:
    case ERROR_PATH_NOT_FOUND: return "no such port";
    case ERROR_ACCESS_DENIED: return "in use or not allowed";
    default: return "cannot be opened (error " + std::to_string(error) + ")";
  }
}

// Read and write time limits for one call. A read returns as soon as any byte is there, or
// after `read_ms` with none; 0 returns at once.
bool SetLimits(HANDLE port, DWORD read_ms, DWORD write_ms) {
  COMMTIMEOUTS limits{};
  limits.ReadIntervalTimeout = MAXDWORD;
  if (read_ms > 0) {
    limits.ReadTotalTimeoutMultiplier = MAXDWORD;
    limits.ReadTotalTimeoutConstant = read_ms;
  }
  limits.WriteTotalTimeoutConstant = write_ms;
  return SetCommTimeouts(port, &limits) != 0;
}

DWORD LimitOf(int timeout_ms) {
  // MAXDWORD has a meaning of its own for read limits; stay below it.
  return timeout_ms <= 0 ? 0 : static_cast<DWORD>(timeout_ms);
}

}  // namespace

bool SerialPort::Open(const std::string& name) {
  Close();
  error_.clear();
  if (name.empty()) {
    error_ = "no port named";
    return false;
  }
  // No security attributes: the handle is not inherited by child processes.
  HANDLE port = CreateFileA(DevicePath(name).c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                            OPEN_EXISTING, 0, nullptr);
  if (port == INVALID_HANDLE_VALUE) {
    error_ = OpenError(GetLastError());
    return false;
  }
  DCB dcb{};
  dcb.DCBlength = sizeof dcb;
  if (!GetCommState(port, &dcb)) {
    CloseHandle(port);
    error_ = "not a serial port";
    return false;
  }
  dcb.BaudRate = CBR_115200;
  dcb.ByteSize = 8;
  dcb.Parity = NOPARITY;
  dcb.StopBits = ONESTOPBIT;
  dcb.fBinary = TRUE;
  dcb.fParity = FALSE;
  dcb.fOutxCtsFlow = FALSE;
  dcb.fOutxDsrFlow = FALSE;
  dcb.fDtrControl = DTR_CONTROL_ENABLE;
  dcb.fRtsControl = RTS_CONTROL_ENABLE;
  dcb.fDsrSensitivity = FALSE;
  dcb.fOutX = FALSE;
  dcb.fInX = FALSE;
  dcb.fNull = FALSE;
  dcb.fAbortOnError = FALSE;
  if (!SetCommState(port, &dcb) || !SetLimits(port, 0, 0)) {
    error_ = "refuses the line settings (error " + std::to_string(GetLastError()) + ")";
    CloseHandle(port);
    return false;
  }
  handle_ = reinterpret_cast<intptr_t>(port);
  return true;
}

void SerialPort::Close() {
  if (handle_ == kNone) return;
  CloseHandle(Handle(handle_));
  handle_ = kNone;
}

void SerialPort::DiscardInput() {
  if (handle_ != kNone) PurgeComm(Handle(handle_), PURGE_RXABORT | PURGE_RXCLEAR);
}

SerialResult SerialPort::Write(const void* data, size_t size, int timeout_ms) {
  if (handle_ == kNone) return {SerialStatus::kGone, 0};
  HANDLE port = Handle(handle_);
  // A write limit of 0 would mean none at all.
  if (!SetLimits(port, 0, timeout_ms <= 0 ? 1 : LimitOf(timeout_ms))) {
    return {SerialStatus::kGone, 0};
  }
  DWORD written = 0;
  if (!WriteFile(port, data, static_cast<DWORD>(size), &written, nullptr)) {
    return {SerialStatus::kGone, written};
  }
  return {written == size ? SerialStatus::kOk : SerialStatus::kTimeout, written};
}

SerialResult SerialPort::Read(void* data, size_t size, int timeout_ms) {
  if (handle_ == kNone) return {SerialStatus::kGone, 0};
  HANDLE port = Handle(handle_);
  if (!SetLimits(port, LimitOf(timeout_ms), 0)) return {SerialStatus::kGone, 0};
  DWORD got = 0;
  if (!ReadFile(port, data, static_cast<DWORD>(size), &got, nullptr)) {
    return {SerialStatus::kGone, 0};
  }
  return {got > 0 ? SerialStatus::kOk : SerialStatus::kTimeout, got};
}

}  // namespace kel::platform
