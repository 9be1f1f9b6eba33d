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

/// A fault of a configuration.
struct Fault {
  int line;         // from 1; 0: the file as a whole
  bool is_warning;  // the configuration is usable nevertheless
  std::string text;
};

/// The program's settings: text values by key, from a file and from the program itself. Not thread-safe.
///
/// Each line of a file has the form `key = value`. Spaces around both are ignored. A value may be enclosed in
/// double quotes, which may not occur anywhere else. A line that begins with `#` is a comment. A key contains
/// no white space, a line no zero byte. If a key is given twice, the first value counts.
class Configuration {
 public:
  /// The value of `key`: the one stored by the program, else the file's, else the default. Empty when unset.
  [[nodiscard]] std::string get(const std::string& key) const;

  /// The value in effect: that of `get`, or when that is empty, the platform's default, if there is one.
  [[nodiscard]] std::string effective(const std::string& key) const;

  /// The line of the file that sets `key`, from 1; 0 when no line does.
  [[nodiscard]] int line_of(std::string_view key) const;

  /// The keys that a file may set: the platform's own, then the registered ones.
  [[nodiscard]] std::vector<std::string> keys() const;

  /// Stores a value that overrides the file's.
  void set_value(const std::string& key, std::string value);

  /// Adds `key` to the keys that a file may set.
  void register_key(const std::string& key);

  /// Stores the value of `key` for files that do not set it.
  void set_default(const std::string& key, std::string value);

  /// Names the file that the input came from; `faults` checks its access rights.
  void set_source_file(std::string path);

  /// One fault, with line number and key, for each malformed line, unknown key, duplicate key, "port" outside
  /// 1 to 65535, "keepalive" outside 5 to 65535, invalid "loglevel", "certfile" without "keyfile" or the
  /// reverse, and TLS file that cannot be read; one for input that could not be read to its end. An empty
  /// level or TLS file counts as unset. Two faults are warnings: a "presence" other than "yes" or "no", and a
  /// "password", or a key that ends so, in a world-readable file. No text shows the value of "password".
  [[nodiscard]] std::vector<Fault> faults() const;

  /// Logs each fault in one line, at ERROR or WARNING. False when any fault is not a warning.
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
  [[nodiscard]] bool is_set(std::string_view key) const;
  void check_pair(std::string_view key, std::string_view partner, std::vector<Fault>& faults) const;
  void check_encryption(std::vector<Fault>& faults) const;
  void check_access(std::vector<Fault>& faults) const;

  std::vector<Entry> entries_;  // of the file, in its order, with duplicate keys
  std::vector<std::pair<int, std::string>>
      malformed_lines_;  // numbers, from 1, and the part that may be shown
  bool read_failed_ = false;
  std::string source_file_;
  std::map<std::string, std::string> stored_;
  std::map<std::string, std::string> defaults_;
  std::set<std::string> registered_;
};

/// Reads `input` to its end into `config`, which must not be null. Faults are kept for `verify`.
void set_config_from_input(std::unique_ptr<Configuration>& config, std::istream& input);

}  // namespace ecu::tamu::config
