#pragma once

#include <istream>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace ecu::tamu::config {

/// Something in a configuration that is not as it should be.
struct Fault {
  int line;         // from 1; 0: the file as a whole
  bool is_warning;  // the configuration can be used all the same
  std::string text;
};

/// The program's settings: text under keys, from a file and from the program itself. Not for use by several
/// threads at once.
///
/// A file holds a `key = value` a line; blanks around both are dropped, a value may stand in double quotes (a
/// double quote stands nowhere else), and a line that begins with `#` is a comment. No key holds a blank, no
/// line a zero byte. Of a key given twice the first value counts.
class Configuration {
 public:
  /// The value of `key`: one stored by the program, else the file's, else a default. Empty when unset.
  [[nodiscard]] std::string get(const std::string& key) const;

  /// What holds for `key`: as `get`, and where that is empty the platform's default, if it has one.
  [[nodiscard]] std::string effective(const std::string& key) const;

  /// The line of the file that holds `key`, from 1; 0 when none does.
  [[nodiscard]] int line_of(std::string_view key) const;

  /// The keys that a file may hold: the platform's own, then the registered ones.
  [[nodiscard]] std::vector<std::string> keys() const;

  /// Stores a value that beats the file's.
  void set_value(const std::string& key, std::string value);

  /// Adds `key` to the keys that a file may hold.
  void register_key(const std::string& key);

  /// Stores a value for `key` that holds unless the file has one.
  void set_default(const std::string& key, std::string value);

  /// Names the file that the input came from, so that `verify` can look at its access rights.
  void set_source_file(std::string path);

  /// One fault with the line number and the key for: a line that is not of the form, an unknown key, a key
  /// given twice, a "port" that is not 1 to 65535, a "keepalive" that is not 5 to 65535, a "loglevel" that is
  /// no level, a "certfile" without "keyfile" or the reverse, a TLS file that cannot be read; and for input
  /// that could not be read to its end. An empty level or TLS file counts as unset. A "presence" that is
  /// neither yes nor no is a warning, as is a file that anyone may read and that holds "password". No text
  /// shows the value of "password".
  [[nodiscard]] std::vector<Fault> faults() const;

  /// Logs the faults, a line each, at ERROR or WARNING. False when there is one that is not only a warning.
  [[nodiscard]] bool verify() const;

 private:
  friend void set_config_from_input(std::unique_ptr<Configuration>& config, std::istream& input);

  struct Entry {
    int line;
    std::string key;
    std::string value;
  };

  void read(std::istream& input);
  [[nodiscard]] const Entry* find(std::string_view key) const;
  void check_entry(const Entry& entry, std::vector<Fault>& faults) const;
  void check_pair(std::string_view key, std::string_view partner, std::vector<Fault>& faults) const;
  void check_access(std::vector<Fault>& faults) const;

  std::vector<Entry> entries_;  // of the file, in its order, repeats included
  std::vector<std::pair<int, std::string>>
      malformed_lines_;  // numbers, from 1, and what may be shown of them
  bool read_failed_ = false;
  std::string source_file_;
  std::map<std::string, std::string> stored_;
  std::map<std::string, std::string> defaults_;
  std::set<std::string> registered_;
};

/// Reads `input` to its end into `config`, which must hold a configuration. Faults are kept for `verify`.
void set_config_from_input(std::unique_ptr<Configuration>& config, std::istream& input);

}  // namespace ecu::tamu::config
