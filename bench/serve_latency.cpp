// Age of each frame when a client has decoded it: framehub-serve --time-code
// draws the feed time into the picture, this client reads it back as soon as
// the decoder hands the frame over and compares it with its own clock.
//
//   serve_latency rtsp://127.0.0.1:8554/front [frames]
//
// Prints the median, 90th and 99th percentile and the extremes, in ms.
#include "time_code.h"

#include <gst/app/gstappsink.h>
#include <gst/gst.h>
#include <gst/video/video.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

uint32_t nowMilliseconds()
{
    using namespace std::chrono;
    return static_cast<uint32_t>(duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count());
}

double percentile(std::vector<double> values, double p)
{
    std::sort(values.begin(), values.end());
    return values[std::min(values.size() - 1, static_cast<size_t>(p * values.size()))];
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 2) {
        std::fprintf(stderr, "Usage: serve_latency RTSP-URL [frames]\n");
        return 2;
    }
    const int frames = argc > 2 ? std::max(10, std::atoi(argv[2])) : 300;
    const int warmUp = 30; // the first second: connection and first key frame
    gst_init(nullptr, nullptr);
    // No jitter buffer delay and no clock sync: a frame is read the moment it is decoded.
    const std::string launch = "rtspsrc location=" + std::string(argv[1])
        + " latency=0 protocols=tcp ! decodebin ! videoconvert ! video/x-raw,format=GRAY8 ! "
          "appsink name=sink sync=false max-buffers=1 drop=false";
    GError* error = nullptr;
    GstElement* pipeline = gst_parse_launch(launch.c_str(), &error);
    if (!pipeline) {
        std::fprintf(stderr, "serve_latency: %s\n", error ? error->message : "can't build the pipeline");
        return 1;
    }
    GstElement* sink = gst_bin_get_by_name(GST_BIN(pipeline), "sink");
    gst_element_set_state(pipeline, GST_STATE_PLAYING);

    std::vector<double> ages;
    for (int i = 0; i < frames + warmUp; ++i) {
        GstSample* sample = gst_app_sink_try_pull_sample(GST_APP_SINK(sink), 5 * GST_SECOND);
        if (!sample) {
            std::fprintf(stderr, "serve_latency: no frame for 5 s\n");
            break;
        }
        const uint32_t now = nowMilliseconds();
        GstVideoInfo info;
        GstMapInfo map;
        GstBuffer* buffer = gst_sample_get_buffer(sample);
        if (i >= warmUp && gst_video_info_from_caps(&info, gst_sample_get_caps(sample))
            && gst_buffer_map(buffer, &map, GST_MAP_READ)) {
            const uint32_t stamp = readTimeCode(map.data, GST_VIDEO_INFO_WIDTH(&info), GST_VIDEO_INFO_HEIGHT(&info),
                GST_VIDEO_INFO_PLANE_STRIDE(&info, 0));
            const int32_t age = static_cast<int32_t>(now - stamp); // modulo 2^32
            if (age >= 0 && age < 10000) // a misread code is thrown away
                ages.push_back(age);
            gst_buffer_unmap(buffer, &map);
        }
        gst_sample_unref(sample);
    }
    gst_element_set_state(pipeline, GST_STATE_NULL);
    gst_object_unref(sink);
    gst_object_unref(pipeline);
    if (ages.empty())
        return 1;
    std::printf("frames %zu  median %.1f ms  p90 %.1f ms  p99 %.1f ms  min %.1f ms  max %.1f ms\n", ages.size(),
        percentile(ages, 0.5), percentile(ages, 0.9), percentile(ages, 0.99), percentile(ages, 0.0),
        percentile(ages, 1.0));
    return 0;
}
