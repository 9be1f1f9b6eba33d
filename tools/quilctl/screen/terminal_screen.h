#pragma once

#include <cstddef>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

struct screen;

namespace ecu::ctl {

/// What a line is, which decides on its colour.
enum class Look { plain, heading, fresh, stale, missing, alarm };

struct ScreenLine {
  std::string text;
  Look look = Look::plain;
};

/// A key; `letter` for each byte of a character.
enum class Key { none, letter, up, down, page_up, page_down, home, end, backspace, enter, escape, resize };
struct KeyPress {
  Key key = Key::none;
  char letter = 0;
};

/// The terminal's whole screen and its keyboard. Create only one, before starting any thread: it
/// blocks the signals of suspending and resizing in every thread of the process. They take effect while the
/// bus connection waits.
class TerminalScreen {
 public:
  TerminalScreen();
  /// Returns to the normal screen.
  ~TerminalScreen();
  TerminalScreen(const TerminalScreen&) = delete;
  TerminalScreen& operator=(const TerminalScreen&) = delete;

  /// Whether the terminal on standard output can place text anywhere.
  [[nodiscard]] static bool is_possible();

  /// Throws `Failure` when the type of the terminal is not known.
  void enter();
  void leave();
  [[nodiscard]] bool is_entered() const noexcept { return screen_ != nullptr; }

  /// Readable when a key is pressed; -1 without a keyboard.
  [[nodiscard]] int keyboard() const noexcept;
  /// The next key that has been pressed; `none` when there is none. Does not wait.
  [[nodiscard]] KeyPress next_key();

  [[nodiscard]] std::size_t width() const;
  [[nodiscard]] std::size_t height() const;
  /// Shows these lines, which fit, and nothing else.
  void draw(const std::vector<ScreenLine>& lines) const;

 private:
  screen* screen_ = nullptr;  // of the library; not null between `enter` and `leave`
  bool is_coloured_ = false;
  std::unique_ptr<FILE, int (*)(FILE*)> keyboard_{nullptr, &std::fclose};
};

}  // namespace ecu::ctl
