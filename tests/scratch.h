// A directory of its own for one test, removed with everything in it at the end.
#pragma once
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

class Scratch {
public:
  Scratch() {
    std::string name = (std::filesystem::temp_directory_path() / "zat_test_XXXXXX").string();
    if (!mkdtemp(name.data())) std::abort();
    root = name;
  }
  ~Scratch() {
    std::error_code ignored; // a file that a dying child still writes must not fail the test
    std::filesystem::remove_all(root, ignored);
  }
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;

  // The full path of a name inside the directory; the directory itself (ending with '/') for an empty name.
  std::string operator/(const std::string& name) const { return root + "/" + name; }

  // Writes a file, making the directories on the way; returns its full path.
  std::string Put(const std::string& name, const std::string& bytes) const {
    std::filesystem::path path = root + "/" + name;
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << bytes;
    return path.string();
  }

  // The bytes of a file; empty when it is missing.
  std::string Get(const std::string& name) const {
    std::ifstream in(root + "/" + name, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }

  bool Has(const std::string& name) const { return std::filesystem::exists(root + "/" + name); }

private:
  std::string root;
};
