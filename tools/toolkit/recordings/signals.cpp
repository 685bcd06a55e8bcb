#include "recordings/signals.h"

#include <csignal>

#include "errors.h"

namespace tool {
namespace {

volatile std::sig_atomic_t signal_came = 0;

extern "C" void on_signal(int) {
  signal_came = 1;
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

void check_interrupted() {
  if (is_interrupted()) throw Error(kInterrupted, "interrupted");
}

}  // namespace tool
