// A temporary directory for one test.
#pragma once

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <system_error>

namespace kelp::test {

// Removed with its contents by the destructor.
class TempDir {
  public:
    TempDir() : mPath((std::filesystem::temp_directory_path() / "kelp-XXXXXX").string()) {
        if (mkdtemp(mPath.data()) == nullptr) {
            abort();
        }
    }
    ~TempDir() {
        std::error_code ignored;
        std::filesystem::remove_all(mPath, ignored);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    std::string Path(const std::string& name) const { return mPath + "/" + name; }
    const std::string& Root() const { return mPath; }

    std::string Write(const std::string& name, const std::string& content) const {
        std::ofstream(Path(name), std::ios::binary) << content;
        return Path(name);
    }
    std::string Read(const std::string& name) const {
        std::ifstream file(Path(name), std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    }
    size_t Count() const {
        return static_cast<size_t>(std::distance(std::filesystem::directory_iterator(mPath), {}));
    }

  private:
    std::string mPath;
};

}  // namespace kelp::test
