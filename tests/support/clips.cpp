// clips.cpp - see clips.h.
#include "tests/support/clips.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
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
    EXPECT_EQ(runCommand("timeout 60 ffmpeg -nostdin -v error -y " + arguments + " -fflags +bitexact " + quoted(aside)),
              "");
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

// All frames as raw pictures, one after the other.
static std::string decoded(const std::string& movie, const std::string& arguments)
{
    const std::string raw = scratchFolder() + "/decoded.raw";
    const std::string format = movie.ends_with(".mjpeg") ? " -f mjpeg" : "";
    EXPECT_EQ(runCommand("ffmpeg -nostdin -v error -y" + format + " -i " + quoted(movie)
                         + " -map 0:v:0 -vsync passthrough " + arguments + " -f rawvideo " + quoted(raw)),
              "");
    return readFile(raw);
}

std::vector<std::string> decodedLuma(const std::string& movie, int width, int height)
{
    const std::string bytes = decoded(movie, "-pix_fmt yuvj444p");
    const size_t plane = size_t(width) * size_t(height);
    std::vector<std::string> frames;
    for (size_t at = 0; at + 3 * plane <= bytes.size(); at += 3 * plane)
        frames.push_back(bytes.substr(at, plane));
    return frames;
}

std::vector<std::string> decodedRgba(const std::string& movie, int width, int height)
{
    const std::string size = std::to_string(width) + ":" + std::to_string(height);
    const std::string bytes
        = decoded(movie, "-vf crop=" + size + ":0:0,scale=flags=neighbor+accurate_rnd+full_chroma_int,format=rgba");
    const size_t picture = 4 * size_t(width) * size_t(height);
    std::vector<std::string> frames;
    for (size_t at = 0; at + picture <= bytes.size(); at += picture)
        frames.push_back(bytes.substr(at, picture));
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

int difference(const std::string& a, const std::string& b)
{
    int most = a.size() == b.size() ? 0 : 256;
    for (size_t i = 0; i < a.size() && i < b.size(); ++i)
        most = std::max(most, abs(int((unsigned char)a[i]) - int((unsigned char)b[i])));
    return most;
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
