// clips.cpp - see clips.h.
#include "tests/support/clips.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>

namespace fs = std::filesystem;

namespace {

std::string quoted(const std::string& path) { return "'" + path + "'"; }

struct Scratch {
    Scratch()
    {
        std::string name = fs::temp_directory_path() / "kivTestXXXXXX";
        path = mkdtemp(name.data()) != nullptr ? name : "";
    }
    ~Scratch()
    {
        std::error_code ignored;
        fs::remove_all(path, ignored);
    }
    std::string path;
};

}  // namespace

std::string runCommand(const std::string& command)
{
    const std::string log = scratchFolder() + "/command.log";
    const int status = system((command + " >" + quoted(log) + " 2>&1 </dev/null").c_str());
    return status == 0 ? "" : command + "\n" + readFile(log);
}

// Written aside and renamed: other tests make the same clip at the same time.
std::string clip(const std::string& name, const std::string& arguments)
{
    const fs::path folder = KIV_CLIP_FOLDER;
    const size_t key = std::hash<std::string>{}(arguments);
    const fs::path path = folder / (std::to_string(key) + "-" + name);
    if (fs::exists(path))
        return path;
    fs::create_directories(folder);
    const fs::path aside = folder / (std::to_string(getpid()) + "-" + name);
    EXPECT_EQ(runCommand("timeout 60 ffmpeg -nostdin -v error -y " + arguments + " -fflags +bitexact " + quoted(aside)), "");
    fs::rename(aside, path);
    return path;
}

std::string testPattern(const std::string& size, const std::string& rate, int frames)
{
    return "-f lavfi -i testsrc2=size=" + size + ":rate=" + rate + " -frames:v " + std::to_string(frames);
}

const std::string& scratchFolder()
{
    static const Scratch scratch;
    return scratch.path;
}

std::vector<std::string> copiedPackets(const std::string& movie)
{
    const std::string folder = scratchFolder() + "/packets";
    fs::remove_all(folder);
    fs::create_directories(folder);
    EXPECT_EQ(runCommand("ffmpeg -nostdin -v error -i " + quoted(movie) + " -map 0:v:0 -c copy -f image2 "
                         + quoted(folder + "/%d.jpg")),
              "");
    std::vector<std::string> packets;
    for (int i = 1; fs::exists(folder + "/" + std::to_string(i) + ".jpg"); ++i)
        packets.push_back(readFile(folder + "/" + std::to_string(i) + ".jpg"));
    return packets;
}

std::vector<std::string> decodedLuma(const std::string& movie, int width, int height)
{
    const std::string raw = scratchFolder() + "/luma.raw";
    const std::string format = movie.ends_with(".mjpeg") ? " -f mjpeg" : "";
    EXPECT_EQ(runCommand("ffmpeg -nostdin -v error -y" + format + " -i " + quoted(movie)
                         + " -map 0:v:0 -vsync passthrough -pix_fmt yuvj444p -f rawvideo " + quoted(raw)),
              "");
    const std::string bytes = readFile(raw);
    const size_t plane = size_t(width) * size_t(height);
    std::vector<std::string> frames;
    for (size_t at = 0; at + 3 * plane <= bytes.size(); at += 3 * plane)
        frames.push_back(bytes.substr(at, plane));
    return frames;
}

double psnr(const std::string& a, const std::string& b)
{
    double squares = 0;
    for (size_t i = 0; i < a.size() && i < b.size(); ++i) {
        const double difference = double((unsigned char)a[i]) - double((unsigned char)b[i]);
        squares += difference * difference;
    }
    return squares == 0 ? 99 : 10 * std::log10(255.0 * 255.0 * double(a.size()) / squares);
}

std::string readFile(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    std::ostringstream bytes;
    bytes << file.rdbuf();
    return bytes.str();
}

void writeFile(const std::string& path, const std::string& bytes)
{
    std::ofstream file(path, std::ios::binary);
    file << bytes;
    EXPECT_TRUE(file.good()) << path;
}
