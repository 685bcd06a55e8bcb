// A folder of a test's own, and what jurn-filter makes of samples there.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace jurn_test {

constexpr int kRate = 48000;
constexpr char kBand[] = "/usr/share/jconvolver/config-files/octave-band/oct-48-1k.wav";

class ToolFixture : public testing::Test {
 protected:
  ToolFixture() {
    std::string name = (std::filesystem::temp_directory_path() / "jurn-XXXXXX").string();
    folder_ = mkdtemp(name.data());
  }
  ~ToolFixture() override { std::filesystem::remove_all(folder_); }

  std::string write(const std::string& name, const std::string& text) const {
    std::ofstream(folder_ + "/" + name) << text;
    return folder_ + "/" + name;
  }

  /** What jurn-filter makes of interleaved samples, in samples of a type. */
  template <typename Sample = short>
  std::vector<Sample> tool(const std::string& arguments, const std::vector<short>& in,
                           int channels) const {
    const std::string source = folder_ + "/in.raw", result = folder_ + "/out.raw";
    std::ofstream(source, std::ios::binary)
        .write(reinterpret_cast<const char*>(in.data()),
               static_cast<std::streamsize>(in.size() * sizeof(short)));
    const std::size_t space = arguments.find(' ');
    const std::string command = std::string(std::getenv("JURN_FILTER")) + " " +
                                arguments.substr(0, space) + " " + source + " " + result +
                                " --raw " + std::to_string(kRate) + "," + std::to_string(channels) +
                                (sizeof(Sample) == sizeof(float) ? " --bits float" : "") +
                                " --overwrite -q" + arguments.substr(space);
    EXPECT_EQ(std::system(command.c_str()), 0) << command;
    std::ifstream file(result, std::ios::binary);
    std::vector<Sample> out(std::filesystem::file_size(result) / sizeof(Sample));
    file.read(reinterpret_cast<char*>(out.data()),
              static_cast<std::streamsize>(out.size() * sizeof(Sample)));
    return out;
  }

  std::string folder_;
};

}  // namespace jurn_test
