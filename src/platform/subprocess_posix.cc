#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <chrono>

#include "platform/process.h"
#include "platform/subprocess.h"

extern char** environ;

namespace kel::platform {
namespace {

void CloseFd(int& fd) {
  if (fd >= 0) close(fd);
  fd = -1;
}

uint64_t NowMsMonotonic() {
  return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(
                                   std::chrono::steady_clock::now().time_since_epoch())
                                   .count());
}

}  // namespace

ChildProcess::~ChildProcess() {
  if (started_ && !reaped_) Wait();
  CloseFd(stdin_fd_);
  CloseFd(stdout_fd_);
}

bool ChildProcess::Start(const std::vector<std::string>& argv, const Options& options) {
  if (argv.empty() || started_) return false;
  int in_pipe[2] = {-1, -1};
  int out_pipe[2] = {-1, -1};
  if (options.stdin_text && pipe2(in_pipe, O_CLOEXEC) != 0) return false;
  if (options.output == OutputMode::kCapture && pipe2(out_pipe, O_CLOEXEC) != 0) {
    CloseFd(in_pipe[0]);
    CloseFd(in_pipe[1]);
    return false;
  }

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  if (options.stdin_text) posix_spawn_file_actions_adddup2(&actions, in_pipe[0], STDIN_FILENO);
  if (options.output == OutputMode::kCapture) {
    posix_spawn_file_actions_adddup2(&actions, out_pipe[1], STDOUT_FILENO);
    if (options.merge_stderr)
      posix_spawn_file_actions_adddup2(&actions, out_pipe[1], STDERR_FILENO);
  } else if (options.output == OutputMode::kDiscard || options.output == OutputMode::kFile) {
    const bool to_file = options.output == OutputMode::kFile;
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO,
                                     to_file ? options.output_path.c_str() : "/dev/null",
                                     O_WRONLY | (to_file ? O_CREAT | O_TRUNC : 0), 0644);
    if (options.merge_stderr)
      posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
  }
  if (!options.working_dir.empty()) {
    posix_spawn_file_actions_addchdir_np(&actions, options.working_dir.c_str());
  }

  std::vector<char*> args;
  args.reserve(argv.size() + 1);
  for (const std::string& a : argv) args.push_back(const_cast<char*>(a.c_str()));
  args.push_back(nullptr);

  pid_t pid = -1;
  const int rc = posix_spawn(&pid, args[0], &actions, nullptr, args.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  CloseFd(in_pipe[0]);
  CloseFd(out_pipe[1]);
  if (rc != 0) {
    CloseFd(in_pipe[1]);
    CloseFd(out_pipe[0]);
    return false;
  }
  pid_ = pid;
  started_ = true;
  reaped_ = false;
  stdin_fd_ = in_pipe[1];
  stdout_fd_ = out_pipe[0];
  if (stdin_fd_ >= 0) fcntl(stdin_fd_, F_SETFL, fcntl(stdin_fd_, F_GETFL) | O_NONBLOCK);
  stdin_text_ = options.stdin_text.value_or(std::string());
  stdin_written_ = 0;
  if (stdin_fd_ >= 0 && stdin_text_.empty()) CloseFd(stdin_fd_);
  return true;
}

ChildExit ChildProcess::Wait(int timeout_ms) {
  if (!started_ || reaped_) return exit_;
  const uint64_t start = NowMsMonotonic();
  // Feed and drain the pipes until both are closed, then reap.
  while (stdin_fd_ >= 0 || stdout_fd_ >= 0) {
    pollfd fds[2];
    nfds_t n = 0;
    if (stdin_fd_ >= 0) fds[n++] = pollfd{stdin_fd_, POLLOUT, 0};
    if (stdout_fd_ >= 0) fds[n++] = pollfd{stdout_fd_, POLLIN, 0};
    int wait_ms = 100;
    if (timeout_ms >= 0 && NowMsMonotonic() - start >= static_cast<uint64_t>(timeout_ms)) {
      kill(pid_, SIGKILL);
      exit_.timed_out = true;
      CloseFd(stdin_fd_);
      CloseFd(stdout_fd_);
      break;
    }
    if (poll(fds, n, wait_ms) < 0 && errno != EINTR) break;
    for (nfds_t i = 0; i < n; ++i) {
      if (fds[i].fd == stdin_fd_ && (fds[i].revents & (POLLOUT | POLLERR | POLLHUP))) {
        const ssize_t w = write(stdin_fd_, stdin_text_.data() + stdin_written_,
                                stdin_text_.size() - stdin_written_);
        if (w > 0) stdin_written_ += static_cast<size_t>(w);
        if (w < 0 && errno != EAGAIN && errno != EINTR) CloseFd(stdin_fd_);
        if (stdin_written_ >= stdin_text_.size()) CloseFd(stdin_fd_);
      } else if (fds[i].fd == stdout_fd_ && (fds[i].revents & (POLLIN | POLLERR | POLLHUP))) {
        char buf[8192];
        const ssize_t r = read(stdout_fd_, buf, sizeof buf);
        if (r > 0) {
          captured_.append(buf, static_cast<size_t>(r));
        } else if (r == 0 || (errno != EAGAIN && errno != EINTR)) {
          CloseFd(stdout_fd_);
        }
      }
    }
  }
  int status = 0;
  while (true) {
    const int ms_left =
        timeout_ms < 0 ? 100
                       : static_cast<int>(static_cast<uint64_t>(timeout_ms) -
                                          std::min<uint64_t>(timeout_ms, NowMsMonotonic() - start));
    const pid_t r = waitpid(pid_, &status, timeout_ms < 0 || exit_.timed_out ? 0 : WNOHANG);
    if (r == pid_) break;
    if (r < 0 && errno != EINTR) {
      reaped_ = true;
      return exit_;
    }
    if (r == 0) {
      if (ms_left <= 0) {
        kill(pid_, SIGKILL);
        exit_.timed_out = true;
      } else {
        struct timespec ts {
          0, 5 * 1000 * 1000
        };
        nanosleep(&ts, nullptr);
      }
    }
  }
  reaped_ = true;
  exit_.exited = WIFEXITED(status);
  exit_.status = exit_.exited ? WEXITSTATUS(status) : 0;
  exit_.signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
  return exit_;
}

void ChildProcess::Terminate() {
  if (started_ && !reaped_) kill(pid_, SIGTERM);
}

std::string SelfExecutablePath() {
  char buf[4096];
  const ssize_t n = readlink("/proc/self/exe", buf, sizeof buf - 1);
  return n > 0 ? std::string(buf, static_cast<size_t>(n)) : std::string();
}

int32_t ResultOfChild(const ChildExit& end) {
  if (end.exited) return ResultFromExitStatus(end.status);
  if (end.signal == SIGINT || end.signal == SIGTERM) return static_cast<int32_t>(0xC000013AU);
  return -1;
}

}  // namespace kel::platform
