#pragma once

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

namespace tests {

/// The test's own folder, which is removed with this object.
class TempDir {
 public:
  TempDir() {
    std::string path = (std::filesystem::temp_directory_path() / "tolquil-XXXXXX").string();
    if (::mkdtemp(path.data()) == nullptr) {
      throw std::runtime_error("mkdtemp failed");
    }
    path_ = path;
  }
  ~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  [[nodiscard]] std::string path(const std::string& name) const { return (path_ / name).string(); }

  /// Writes a file and returns its path.
  std::string write(const std::string& name, const std::string& text) const {
    std::ofstream(path(name)) << text;
    return path(name);
  }

 private:
  std::filesystem::path path_;
};

}  // namespace tests
