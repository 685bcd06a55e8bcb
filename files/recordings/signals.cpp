#include "recordings/signals.h"

#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <ctime>

#include "errors.h"

namespace jurn {
namespace {

volatile std::sig_atomic_t signal_came = 0, is_accepted = 0;

std::int64_t milliseconds() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * std::int64_t{1000} + now.tv_nsec / 1000000;
}

constexpr int kInterruptedCode = 130;
constexpr std::int64_t kSameSignal =
    200;  // ms: some programs send one to the process and its group
std::atomic<std::int64_t> first_came{0};
static_assert(std::atomic<std::int64_t>::is_always_lock_free);

extern "C" void on_signal(int) {
  const int error = errno;
  if (first_came == 0)
    first_came = milliseconds();
  else if (milliseconds() - first_came > kSameSignal)
    _exit(kInterruptedCode);
  signal_came = !is_accepted;
  errno = error;
}

}  // namespace

void catch_signals() {
  struct sigaction action {};  // without SA_RESTART: a read that waits for a pipe has to return
  action.sa_handler = on_signal;
  for (int signal : {SIGINT, SIGTERM, SIGHUP}) sigaction(signal, &action, nullptr);
  action.sa_handler = SIG_IGN;
  for (int signal : {SIGPIPE, SIGXFSZ}) sigaction(signal, &action, nullptr);
}

bool is_interrupted() {
  return signal_came != 0;
}

void accept_interruption() {
  is_accepted = 1;
  signal_came = 0;
}

void check_interrupted() {
  if (is_interrupted()) throw Error(kInterrupted, "interrupted");
}

}  // namespace jurn
