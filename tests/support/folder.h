// A folder for the files of a test, gone at its end; and texts with places to fill, such as its path.
#pragma once

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

namespace harness {

inline std::string replaced(std::string_view text, std::string_view from, std::string_view to) {
    std::string filled;
    for (size_t at; (at = text.find(from)) != text.npos; text.remove_prefix(at + from.size()))
        filled.append(text.substr(0, at)).append(to);
    return filled.append(text);
}

class temporary_folder {
  public:
    temporary_folder() {
        std::string pattern = std::filesystem::temp_directory_path() / "vorncore-XXXXXX";
        path_ = mkdtemp(pattern.data()) ? pattern : "";
    }
    ~temporary_folder() { std::filesystem::remove_all(path_); }
    temporary_folder(const temporary_folder &) = delete;
    const std::string &path() const { return path_; }
    void write(const std::string &name, std::string_view contents) const {
        std::ofstream(path_ + "/" + name, std::ios::binary) << contents;
    }

  private:
    std::string path_;
};

} // namespace harness
