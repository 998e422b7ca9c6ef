#include "tools/qovctl/terminal.h"

#define NCURSES_NOMACROS
#include <ncurses.h>
#include <sys/epoll.h>
#include <sys/ioctl.h>
#include <sys/signalfd.h>
#include <termcap.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <system_error>

#include "tools/qovctl/failure.h"

namespace qov::ctl {
namespace {

[[noreturn]] void fail(const char* what) {
  throw Failure(kFailed, std::string(what) + ": " + std::generic_category().message(errno));
}

/// The signals wait at the descriptor and stay blocked, so the handlers never run. They are there
/// since ncurses then installs none of its own: its handler of SIGTSTP loses a signal that comes
/// while the screen is written.
int takeSignals() {
  sigset_t signals;
  ::sigemptyset(&signals);
  for (const int signum : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGTSTP, SIGWINCH}) {
    ::sigaddset(&signals, signum);
    std::signal(signum, [](int) {});
  }
  ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  const int taken = ::signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
  if (taken < 0) {
    fail("signals cannot be waited for");
  }
  return taken;
}

void watch(int input, int descriptor) {
  epoll_event event{};
  event.events = EPOLLIN;
  event.data.fd = descriptor;
  if (::epoll_ctl(input, EPOLL_CTL_ADD, descriptor, &event) != 0) {
    fail("the terminal cannot be waited for");
  }
}

/// Asked first, since newterm() loses memory where it is not.
bool isKnown(const std::string& terminal) {
  return ::tgetent(nullptr, terminal.c_str()) == 1;
}

bool canMoveItsCursor() {
  return ::tigetstr("cup") != nullptr;
}

std::string nameOfTerminal() {
  const char* const name = std::getenv("TERM");
  return name != nullptr ? name : "";
}

/// As the system has it: nothing stops where no shell could let it go on.
void stop() {
  // The shell may have taken the terminal back already: it does not wait for what a script of its
  // has started.
  if (::tcgetpgrp(STDIN_FILENO) == ::getpgrp()) {
    ::endwin();
  }
  sigset_t signals;
  ::sigemptyset(&signals);
  ::sigaddset(&signals, SIGTSTP);
  std::signal(SIGTSTP, SIG_DFL);
  std::raise(SIGTSTP);
  ::pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);  // stops here
  ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

void put(const Screen& lines, int row) {
  for (const ScreenLine& line : lines) {
    ::attrset(static_cast<int>(line.strong ? A_BOLD : A_NORMAL));
    ::mvaddstr(row++, 0, line.text.c_str());
  }
}

}  // namespace

bool Terminal::isThere() {
  return ::isatty(STDIN_FILENO) == 1 && ::isatty(STDOUT_FILENO) == 1;
}

void Terminal::GiveBack::operator()(screen* terminal) const {
  ::endwin();
  ::delscreen(terminal);
}

Terminal::Terminal()
    : signals_(takeSignals()),
      input_(::epoll_create1(EPOLL_CLOEXEC)),
      screen_(isKnown(nameOfTerminal()) ? ::newterm(nullptr, stdout, stdin) : nullptr) {
  if (!screen_ || !canMoveItsCursor()) {
    throw Failure(kUsage, "TERM=" + nameOfTerminal() +
                              ": no terminal that is known here and moves its cursor; --once "
                              "prints one screen");
  }
  watch(input_.get(), STDIN_FILENO);
  watch(input_.get(), signals_.get());
  ::cbreak();
  ::noecho();
  ::keypad(stdscr, true);
  ::nodelay(stdscr, true);
  ::curs_set(0);
}

ScreenSize Terminal::size() const {
  winsize now{};
  if (::ioctl(STDOUT_FILENO, TIOCGWINSZ, &now) == 0 && now.ws_row > 0 && now.ws_col > 0 &&
      ::is_term_resized(now.ws_row, now.ws_col)) {
    ::resizeterm(now.ws_row, now.ws_col);
  }
  return {static_cast<std::size_t>(COLS), static_cast<std::size_t>(LINES)};
}

void Terminal::show(const Screen& top, const Screen& bottom) {
  ::erase();
  put(top, 0);
  put(bottom, std::max(LINES - static_cast<int>(bottom.size()), 0));
  ::refresh();
}

int Terminal::keyBefore(Clock::time_point time) {
  if (const int key = ::getch(); key != ERR) {
    return key;
  }
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(time - Clock::now()).count();
  epoll_event event{};
  const int events =
      ::epoll_wait(input_.get(), &event, 1, static_cast<int>(std::max<decltype(left)>(left, 0)));
  if (events <= 0) {
    return kNoKey;
  }
  if (event.data.fd == signals_.get()) {
    return takeSignal();
  }
  const int key = ::getch();
  return key != ERR ? key : kEnd;
}

int Terminal::takeSignal() const {
  signalfd_siginfo signal{};
  if (::read(signals_.get(), &signal, sizeof signal) != sizeof signal) {
    return kEnd;
  }
  if (signal.ssi_signo == SIGTSTP) {
    stop();
  }
  return signal.ssi_signo == SIGTSTP || signal.ssi_signo == SIGWINCH ? kShowAnew : kEnd;
}

}  // namespace qov::ctl
