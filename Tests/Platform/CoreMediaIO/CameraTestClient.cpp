// A camera client in a process of its own, for tests. Writes one line for each thing it sees:
//
//   state <0 paused, 1 streaming, 2 lost>
//   frame <sequence> <time> <format> <width>x<height> <stride> <colour at 100,100> <colour at 1500,900>
//
// Arguments: [--remote NAME] [--format NAME] [--clients N] [--gate FIFO]
#include "Tools/CameraClient.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace {

using pavo::tools::CameraClient;
using pavo::tools::CameraFormat;
using pavo::tools::CameraFrame;
using pavo::tools::CameraState;

std::mutex outputMutex;

// "Y,Cb,Cr"; of a format that the camera does not have, nothing.
std::string colorAt(const CameraFrame& frame, std::size_t x, std::size_t y)
{
    const std::uint8_t* row = frame.bytes.data() + y * frame.strideBytes;
    const std::uint8_t* pair = row + x / 2 * 4;
    const auto text = [](int a, int b, int c) {
        return std::to_string(a) + "," + std::to_string(b) + "," + std::to_string(c);
    };
    switch (frame.format) {
    case CameraFormat::yuy2:
        return text(pair[0], pair[1], pair[3]);
    case CameraFormat::uyvy:
    case CameraFormat::bgrx:
        return "-";
    case CameraFormat::nv12:
        break;
    }
    const std::uint8_t* chroma =
        frame.bytes.data() + (frame.height + y / 2) * std::size_t{frame.strideBytes} + x / 2 * 2;
    return text(row[x], chroma[0], chroma[1]);
}

void printFrame(const CameraFrame& frame)
{
    const std::lock_guard lock(outputMutex);
    std::printf("frame %llu %lld %s %ux%u %u %s %s\n", static_cast<unsigned long long>(frame.sequence),
                static_cast<long long>(frame.presentationTimeNs), std::string(nameOf(frame.format)).c_str(),
                frame.width, frame.height, frame.strideBytes, colorAt(frame, 100, 100).c_str(),
                colorAt(frame, 1500, 900).c_str());
    std::fflush(stdout);
}

void printState(CameraState state, std::string_view reason)
{
    const std::lock_guard lock(outputMutex);
    std::printf("state %d %s\n", static_cast<int>(state), std::string(reason).c_str());
    std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv)
{
    CameraClient::Options options;
    int clientCount = 1;
    int gate = -1;
    for (int index = 1; index + 1 < argc; index += 2) {
        const std::string_view name = argv[index];
        const std::string value = argv[index + 1];
        if (name == "--remote") options.remoteName = value;
        if (name == "--clients") clientCount = std::atoi(value.c_str());
        if (name == "--gate") gate = ::open(value.c_str(), O_RDONLY | O_CLOEXEC);
        if (name != "--format") continue;
        options.formats.clear();
        for (const auto format :
             {CameraFormat::yuy2, CameraFormat::uyvy, CameraFormat::nv12, CameraFormat::bgrx})
            if (nameOf(format) == value) options.formats.push_back(format);
    }
    options.onStateChanged = printState;
    options.onFrame = [gate](const CameraFrame& frame) {
        printFrame(frame);
        // A slow client keeps its frame, and its place in the graph, until it is given one byte.
        char byte = 0;
        if (gate >= 0) static_cast<void>(!::read(gate, &byte, 1));
    };
    std::vector<std::unique_ptr<CameraClient>> clients;
    for (int index = 0; index < clientCount; ++index) {
        clients.push_back(std::make_unique<CameraClient>(options));
        if (const auto problem = clients.back()->start()) {
            std::printf("problem %s\n", problem->c_str());
            return 1;
        }
    }
    // Until the test ends this.
    for (;;)
        ::pause();
}
