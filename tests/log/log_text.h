// What the log's tests share.
#pragma once

#include "support/scratch_folder.h"

#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

// The file's lines with "T" in place of each well-formed time stamp; none when there is no file.
inline std::vector<std::string> logLines(const folidex::test::ScratchFolder& scratch, const std::string& file)
{
    static const std::regex timeStamp(R"(^\d\d-\d\d-\d\d \d\d:\d\d:\d\d(?=\t|$))");
    std::vector<std::string> lines;
    if (scratch.exists(file)) {
        std::istringstream stream(scratch.read(file));
        for (std::string line; std::getline(stream, line);) {
            lines.push_back(std::regex_replace(line, timeStamp, "T"));
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
