#include "render.h"

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>

using namespace Kelmo::FrameHub;

namespace render {

Snapshot snapshot(const ImageBuffer& buffer)
{
    Snapshot s;
    s.colorSpace = buffer.getColorSpace();
    s.pixels = ImageBuffer::imageBufferToCvMat(buffer).clone();
    return s;
}

namespace {

cv::Mat falseColour(const cv::Mat& gray8)
{
    cv::Mat coloured;
    cv::applyColorMap(gray8, coloured, cv::COLORMAP_JET);
    return coloured;
}

// 16-bit values between lo and hi to 8 bits, near bright.
cv::Mat nearBright(const cv::Mat& values16, double lo, double hi)
{
    cv::Mat out;
    values16.convertTo(out, CV_8U, -255.0 / (hi - lo), 255.0 * hi / (hi - lo));
    return out;
}

// Points (depth forward, left, up) seen obliquely from the right-hand side:
// turned 55 degrees about the vertical axis, drawn orthographically, nearer
// points over farther ones, coloured by depth (near red, far blue).
cv::Mat sideView(const cv::Mat& xyz)
{
    const int w = 480, h = 360;
    cv::Mat view(h, w, CV_8UC3, cv::Scalar(24, 24, 24));
    const float c = std::cos(0.96f), s = std::sin(0.96f);
    float minX = 1e30f, maxX = -1e30f, minY = 1e30f, maxY = -1e30f, maxDepth = 1.0f;
    for (int r = 0; r < xyz.rows; ++r)
        for (int k = 0; k < xyz.cols; ++k) {
            const cv::Vec3f& p = xyz.at<cv::Vec3f>(r, k);
            if (p[0] <= 0.0f)
                continue;
            const float sx = p[0] * c + p[1] * s;
            minX = std::min(minX, sx);
            maxX = std::max(maxX, sx);
            minY = std::min(minY, p[2]);
            maxY = std::max(maxY, p[2]);
            maxDepth = std::max(maxDepth, p[0]);
        }
    if (minX > maxX)
        return view;
    const float scale = std::min((w - 40) / std::max(maxX - minX, 1.0f), (h - 40) / std::max(maxY - minY, 1.0f));
    cv::Mat ramp(1, 256, CV_8UC1);
    for (int i = 0; i < 256; ++i)
        ramp.at<uchar>(0, i) = static_cast<uchar>(255 - i);
    const cv::Mat palette = falseColour(ramp);
    // Far first, so that near points stay on top.
    for (int pass = 0; pass < 2; ++pass)
        for (int r = 0; r < xyz.rows; ++r)
            for (int k = 0; k < xyz.cols; ++k) {
                const cv::Vec3f& p = xyz.at<cv::Vec3f>(r, k);
                if (p[0] <= 0.0f || (pass == 0) != (p[0] > maxDepth * 0.5f))
                    continue;
                const int x = static_cast<int>(20 + (p[0] * c + p[1] * s - minX) * scale);
                const int y = static_cast<int>(h - 20 - (p[2] - minY) * scale);
                const int shade = std::min(255, static_cast<int>(255 * p[0] / maxDepth));
                cv::rectangle(view, cv::Rect(x, y, 2, 2), cv::Scalar(palette.at<cv::Vec3b>(0, shade)), cv::FILLED);
            }
    cv::putText(view, "point cloud, seen from the side", cv::Point(8, 18), cv::FONT_HERSHEY_SIMPLEX, 0.45,
        cv::Scalar(220, 220, 220), 1);
    return view;
}

} // namespace

cv::Mat toPicture(const Snapshot& s)
{
    cv::Mat out;
    const cv::Mat& m = s.pixels;
    if (m.empty())
        return cv::Mat(240, 320, CV_8UC3, cv::Scalar(0, 0, 0));
    switch (s.colorSpace) {
    case COLORSPACE_RGB_888:
    case COLORSPACE_H2RGB_888:
        cv::cvtColor(m, out, cv::COLOR_RGB2BGR);
        break;
    case COLORSPACE_BGR_888:
    case COLORSPACE_YUV_888:
    case COLORSPACE_HSY_888:
    case COLORSPACE_HSMIXED_888:
        out = m.clone(); // the three channels shown as they are
        break;
    case COLORSPACE_YUV_422:
        cv::cvtColor(m, out, cv::COLOR_YUV2BGR_YUY2);
        break;
    case COLORSPACE_YYCBCR_8888: {
        std::vector<cv::Mat> planes;
        cv::split(m, planes);
        cv::merge(std::vector<cv::Mat> { planes[0], planes[2], planes[3] }, out);
        break;
    }
    case COLORSPACE_DEPTH_16:
        out = falseColour(nearBright(m, 400.0, 6000.0));
        break;
    case COLORSPACE_INFRARED_16: {
        cv::Mat gray;
        cv::normalize(m, gray, 0, 255, cv::NORM_MINMAX, CV_8U);
        cv::cvtColor(gray, out, cv::COLOR_GRAY2BGR);
        break;
    }
    case COLORSPACE_DISTANCE_32: {
        // 16-bit distances packed in the first half of the block.
        cv::Mat packed(m.rows, m.cols, CV_16UC1, const_cast<uchar*>(m.data));
        out = falseColour(nearBright(packed, 400.0, 6000.0));
        break;
    }
    case COLORSPACE_XYZ_323232:
        out = sideView(m);
        break;
    default:
        if (m.channels() == 1)
            cv::cvtColor(m, out, cv::COLOR_GRAY2BGR);
        else
            out = m.clone();
        break;
    }
    return out;
}

cv::Mat contactSheet(const std::vector<cv::Mat>& pictures, const std::vector<std::string>& labels)
{
    const int tileW = 320, tileH = 240, labelH = 22, columns = 4;
    const int rows = static_cast<int>((pictures.size() + columns - 1) / columns);
    cv::Mat sheet(std::max(1, rows) * (tileH + labelH), columns * tileW, CV_8UC3, cv::Scalar(40, 40, 40));
    for (size_t i = 0; i < pictures.size(); ++i) {
        const int x = static_cast<int>(i % columns) * tileW, y = static_cast<int>(i / columns) * (tileH + labelH);
        cv::Mat tile;
        const double scale
            = std::min(static_cast<double>(tileW) / pictures[i].cols, static_cast<double>(tileH) / pictures[i].rows);
        cv::resize(pictures[i], tile, cv::Size(), scale, scale, cv::INTER_AREA);
        tile.copyTo(
            sheet(cv::Rect(x + (tileW - tile.cols) / 2, y + labelH + (tileH - tile.rows) / 2, tile.cols, tile.rows)));
        cv::putText(sheet, labels[i], cv::Point(x + 6, y + 16), cv::FONT_HERSHEY_SIMPLEX, 0.45,
            cv::Scalar(240, 240, 240), 1, cv::LINE_AA);
    }
    return sheet;
}

} // namespace render
