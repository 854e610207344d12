// The C++ side of python_image_bench.py: the same cached 640x480 RGB fetch,
// wrapped as a cv::Mat header like the Python side wraps a numpy view, timed
// the same way (median of batches). Prints nanoseconds per fetch.
#include <framehub/frame_hub.h>
#include <lumo/log.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <vector>

using namespace Kelmo::FrameHub;

int main(int argc, char** argv)
{
    const int batches = argc > 1 ? std::max(1, std::atoi(argv[1])) : 200;
    const int perBatch = 2000;
    lumo::log::setLevel(1);

    CameraInfo info;
    info.name = "cam";
    info.model = "Simulator2D";
    info.fieldOfView = FieldOfView(1.0f, 0.75f);
    info.resolutions = { { 640, 480 } };
    info.colorSpaces = { COLORSPACE_YUV_422 };
    info.frameRates = { 1 };
    FrameHub hub({ info });
    // At one frame a second the converted image is served from the ring. A
    // frame is put before each batch, outside the timing, since images are
    // stamped when put; the batch that converts is left out by the median.
    const std::string me = hub.subscribeCamera("bench", "cam", Resolution(640, 480), COLORSPACE_RGB_888, 1);
    std::vector<unsigned char> rgb(640 * 480 * 3, 77);

    std::vector<double> nanoseconds;
    uint64_t sink = 0;
    for (int b = 0; b < batches; ++b) {
        hub.putImage("cam", Resolution(640, 480), COLORSPACE_RGB_888, rgb.data());
        const auto start = std::chrono::steady_clock::now();
        for (int i = 0; i < perBatch; ++i) {
            boost::shared_ptr<ImageBuffer> image = hub.getImage(me);
            if (image) {
                cv::Mat view = ImageBuffer::imageBufferToCvMat(*image);
                sink += view.rows;
                hub.releaseImage(me);
            }
        }
        const std::chrono::duration<double, std::nano> took = std::chrono::steady_clock::now() - start;
        nanoseconds.push_back(took.count() / perBatch);
    }
    std::nth_element(nanoseconds.begin(), nanoseconds.begin() + batches / 2, nanoseconds.end());
    std::printf("%.1f\n", nanoseconds[batches / 2]);
    return sink == 0 ? 1 : 0;
}
