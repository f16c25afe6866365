// What the log's tests share.
#pragma once

#include "support/scratch_folder.h"

#include <fnmatch.h>

#include <sstream>
#include <string>
#include <thread>
#include <vector>

// The file's lines with "T" in place of each well-formed time stamp; none when there is no file.
inline std::vector<std::string> logLines(const folidex::test::ScratchFolder& scratch, const std::string& file)
{
    constexpr const char* timeStamp = "[0-9][0-9]-[0-9][0-9]-[0-9][0-9] [0-9][0-9]:[0-9][0-9]:[0-9][0-9]";
    constexpr std::size_t timeStampLength = 17;
    std::vector<std::string> lines;
    if (scratch.exists(file)) {
        std::istringstream stream(scratch.read(file));
        for (std::string line; std::getline(stream, line);) {
            if (::fnmatch(timeStamp, line.substr(0, timeStampLength).c_str(), 0) == 0) {
                line.replace(0, timeStampLength, "T");
            }
            lines.push_back(line);
        }
    }
    return lines;
}

inline const std::string sessionStarted = "T\t************* SESSION STARTED *************";
inline const std::string sessionEnded = "T\t************* SESSION ENDED *************";
inline const std::string contentCleared = "T\t************* CONTENT CLEARED *************";

// Runs `body(number)` on `count` threads at once.
template <typename Body>
void inParallel(int count, const Body& body)
{
    std::vector<std::thread> threads(static_cast<std::size_t>(count));
    int number = 0;
    for (std::thread& thread : threads) {
        thread = std::thread(body, number++);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}
