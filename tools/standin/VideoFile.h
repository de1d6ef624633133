// SPDX-License-Identifier: Apache-2.0
// A video file, played over and over.
#pragma once

#include <opencv2/core.hpp>

#include <memory>
#include <string>

namespace lumivora::tools {

/** Decodes a video file frame by frame, scaled to one size, and starts again at its end.
 *  @thread reentrant */
class VideoFile
{
public:
    /** @return none when the file cannot be opened or decoded; the reason goes to the log */
    [[nodiscard]] static std::unique_ptr<VideoFile> open(const std::string &path, int width,
                                                         int height, int framesPerSecond);
    ~VideoFile();

    VideoFile(const VideoFile &) = delete;
    VideoFile &operator=(const VideoFile &) = delete;

    /** The next frame, B G R X; the last one once more when the decoder fails.
     *  Valid until the next call; the caller may draw into it. */
    cv::Mat &next();

private:
    VideoFile() = default;
    bool pull();

    struct Pipeline;
    std::unique_ptr<Pipeline> _pipeline;
    cv::Mat _frame;
};

} // namespace lumivora::tools
