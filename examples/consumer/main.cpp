// The README's example as a program of its own, with a feeder's frame so
// that the fetch has something to hand out.
#include <framehub/frame_hub.h>

#include <cstdio>
#include <vector>

using namespace Kelmo::FrameHub;

int main()
{
    CameraInfo front;
    front.name = "front";
    front.model = "Simulator2D";
    front.fieldOfView = FieldOfView(1.06f, 0.83f); // radians
    front.resolutions = { { 320, 240 }, { 640, 480 } };
    front.colorSpaces = { COLORSPACE_YUV_422 };
    front.frameRates = { 5, 15, 30 };

    FrameHub hub({ front });
    std::string me = hub.subscribeCamera("tracker", "front", Resolution(320, 240), COLORSPACE_RGB_888, 15);

    std::vector<unsigned char> pixels(640 * 480 * 3, 128);
    hub.putImage("front", Resolution(640, 480), COLORSPACE_RGB_888, pixels.data());

    int status = 1;
    boost::shared_ptr<ImageBuffer> image = hub.getImage(me);
    if (image) {
        cv::Mat view = ImageBuffer::imageBufferToCvMat(*image); // no copy
        std::printf("%s: %dx%d, %d channels from %s\n", me.c_str(), view.cols, view.rows, view.channels(),
            image->getCameraName().c_str());
        status = (view.cols == 320 && view.rows == 240 && view.type() == CV_8UC3) ? 0 : 1;
        hub.releaseImage(me); // the pixels are valid until here
    }
    hub.unsubscribe(me);
    return status;
}
