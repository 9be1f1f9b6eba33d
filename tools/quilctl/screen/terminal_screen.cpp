#define NCURSES_NOMACROS 1
#define NCURSES_WIDECHAR 1

#include "quilctl/screen/terminal_screen.h"

#include <ncursesw/curses.h>
#include <ncursesw/termcap.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <string_view>
#include <utility>

#include <ecu/tamu/signal_mask.h>

#include "quilctl/base/failure.h"
#include "quilctl/screen/display_width.h"
#include "quilctl/screen/text_table.h"

namespace ecu::ctl {

namespace {

// The library handles them, and may not be interrupted while it writes.
constexpr std::array handled_signals = {SIGTSTP, SIGWINCH};
constexpr int escape_delay_ms = 25;  // between the characters of one key
constexpr int escape_code = 27;
constexpr int delete_code = 127;
constexpr int last_byte = 0xff;  // of a character of several bytes; other keys have greater codes

constexpr short colour_pair_of(Look look) {
  return static_cast<short>(static_cast<int>(look) + 1);
}

void define_colours() {
  ::start_color();
  ::use_default_colors();
  ::init_pair(colour_pair_of(Look::fresh), COLOR_GREEN, -1);
  ::init_pair(colour_pair_of(Look::stale), COLOR_YELLOW, -1);
  ::init_pair(colour_pair_of(Look::alarm), COLOR_RED, -1);
}

attr_t attributes_of(Look look) {
  return look == Look::heading || look == Look::fresh || look == Look::alarm ? A_BOLD
         : look == Look::missing                                             ? A_DIM
                                                                             : A_NORMAL;
}

bool has_colour(Look look) {
  return look == Look::fresh || look == Look::stale || look == Look::alarm;
}

KeyPress key_of(int code) {
  static constexpr std::pair<int, Key> keys[] = {{KEY_UP, Key::up},
                                                 {KEY_DOWN, Key::down},
                                                 {KEY_PPAGE, Key::page_up},
                                                 {KEY_NPAGE, Key::page_down},
                                                 {KEY_HOME, Key::home},
                                                 {KEY_END, Key::end},
                                                 {KEY_BACKSPACE, Key::backspace},
                                                 {delete_code, Key::backspace},
                                                 {'\b', Key::backspace},
                                                 {KEY_ENTER, Key::enter},
                                                 {'\n', Key::enter},
                                                 {'\r', Key::enter},
                                                 {escape_code, Key::escape},
                                                 {KEY_RESIZE, Key::resize},
                                                 {ERR, Key::none}};
  const auto* const known = std::ranges::find(keys, code, &std::pair<int, Key>::first);
  if (known != std::end(keys)) {
    return {known->second};
  }
  return {Key::letter, code >= ' ' && code <= last_byte ? static_cast<char>(code) : '\0'};
}

}  // namespace

TerminalScreen::TerminalScreen() {
  tamu::block_signals(tamu::signal_set(handled_signals));
}

TerminalScreen::~TerminalScreen() {
  leave();
  tamu::unblock_signals(tamu::signal_set(handled_signals));
}

bool TerminalScreen::is_possible() {
  const char* const type = std::getenv("TERM");
  return ::isatty(STDOUT_FILENO) == 1 && type != nullptr && std::string_view(type) != "dumb" &&
         ::tgetent(nullptr, type) == 1;
}

void TerminalScreen::enter() {
  if (screen_ != nullptr) {
    return;
  }
  // Not standard input, which a script may have redirected.
  // NOLINTNEXTLINE(cppcoreguidelines-owning-memory): handed to its owner at once
  keyboard_.reset(std::fopen("/dev/tty", "re"));
  screen_ = ::newterm(nullptr, stdout, keyboard_ == nullptr ? stdin : keyboard_.get());
  if (screen_ == nullptr) {
    throw Failure(ExitCode::failure, std::string("unknown terminal type ") + std::getenv("TERM"));
  }
  define_colours();
  is_coloured_ = ::has_colors() && OutputStyle::of_standard_output().colour;
  ::cbreak();
  ::noecho();
  ::nonl();
  ::curs_set(0);
  ::set_escdelay(escape_delay_ms);
  ::keypad(::stdscr, true);
  ::nodelay(::stdscr, true);
}

void TerminalScreen::leave() {
  if (screen_ == nullptr) {
    return;
  }
  ::endwin();
  ::delscreen(screen_);
  screen_ = nullptr;
  keyboard_.reset();
}

int TerminalScreen::keyboard() const noexcept {
  return screen_ == nullptr || keyboard_ == nullptr ? -1 : ::fileno(keyboard_.get());
}

KeyPress TerminalScreen::next_key() {
  return screen_ == nullptr ? KeyPress() : key_of(::wgetch(::stdscr));
}

std::size_t TerminalScreen::width() const {
  return static_cast<std::size_t>(::getmaxx(::stdscr));
}

std::size_t TerminalScreen::height() const {
  return static_cast<std::size_t>(::getmaxy(::stdscr));
}

void TerminalScreen::draw(const std::vector<ScreenLine>& lines) const {
  ::werase(::stdscr);
  for (std::size_t i = 0; i < lines.size(); ++i) {
    const auto& [text, look] = lines[i];
    ::wattr_set(::stdscr, attributes_of(look),
                is_coloured_ && has_colour(look) ? colour_pair_of(look) : short{0}, nullptr);
    (void)::mvwaddstr(::stdscr, static_cast<int>(i), 0, for_terminal(text).c_str());
  }
  ::wattr_set(::stdscr, A_NORMAL, 0, nullptr);
  ::wrefresh(::stdscr);
}

}  // namespace ecu::ctl
