#include "scene.h"

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <cmath>
#include <stdexcept>

namespace scene {

cv::Mat testCard(int width, int height, double t)
{
    cv::Mat hsv(height, width, CV_8UC3);
    // Top half: every hue left to right, saturation falling towards the middle.
    for (int y = 0; y < height; ++y) {
        cv::Vec3b* row = hsv.ptr<cv::Vec3b>(y);
        const double v = static_cast<double>(y) / height;
        for (int x = 0; x < width; ++x) {
            const uchar hue = static_cast<uchar>(180.0 * x / width);
            if (v < 0.5)
                row[x] = cv::Vec3b(hue, static_cast<uchar>(255 * (1.0 - v * 1.4)), 255);
            else
                row[x] = cv::Vec3b(0, 0, static_cast<uchar>(255.0 * x / width)); // grey ramp
        }
    }
    cv::Mat rgb;
    cv::cvtColor(hsv, rgb, cv::COLOR_HSV2RGB);

    // Saturated and grey patches along the bottom.
    const cv::Scalar patches[] = { { 255, 0, 0 }, { 0, 255, 0 }, { 0, 0, 255 }, { 255, 255, 0 }, { 0, 255, 255 },
        { 255, 0, 255 }, { 255, 255, 255 }, { 128, 128, 128 }, { 0, 0, 0 } };
    const int n = sizeof(patches) / sizeof(patches[0]);
    const int ph = height / 8;
    for (int i = 0; i < n; ++i)
        cv::rectangle(rgb, cv::Rect(i * width / n, height - ph, width / n + 1, ph), patches[i], cv::FILLED);

    // Fine detail: one-pixel stripes whose spacing shrinks, so scaling shows.
    const cv::Rect detail(width * 3 / 4, height / 2 + 4, width / 4 - 4, height / 4);
    for (int x = detail.x, step = 8; x < detail.x + detail.width; x += step, step = std::max(2, step - 1))
        cv::line(rgb, cv::Point(x, detail.y), cv::Point(x, detail.y + detail.height), cv::Scalar(255, 255, 255), 1);

    // Moving shapes.
    const double s = std::min(width, height) / 240.0;
    const cv::Point ball(static_cast<int>(width * (0.5 + 0.35 * std::sin(t * 1.3))),
        static_cast<int>(height * (0.55 + 0.2 * std::cos(t * 1.7))));
    cv::circle(rgb, ball, static_cast<int>(22 * s), cv::Scalar(255, 255, 255), cv::FILLED, cv::LINE_AA);
    cv::circle(rgb, ball, static_cast<int>(14 * s), cv::Scalar(220, 30, 30), cv::FILLED, cv::LINE_AA);
    const cv::Point box(static_cast<int>(width * (0.5 + 0.4 * std::cos(t * 0.9))), height / 4);
    cv::rectangle(rgb,
        cv::Rect(box.x - static_cast<int>(20 * s), box.y - static_cast<int>(15 * s), static_cast<int>(40 * s),
            static_cast<int>(30 * s)),
        cv::Scalar(20, 20, 200), cv::FILLED);
    cv::putText(rgb, "framehub", cv::Point(static_cast<int>(8 * s), static_cast<int>(20 * s)), cv::FONT_HERSHEY_SIMPLEX,
        0.6 * s, cv::Scalar(0, 0, 0), std::max(1, static_cast<int>(2 * s)));
    return rgb;
}

void depthScene(int width, int height, double t, cv::Mat& depth, cv::Mat& infrared)
{
    depth.create(height, width, CV_16UC1);
    infrared.create(height, width, CV_16UC1);
    // A pinhole camera 1.2 m above a tiled floor, pitched down, facing a
    // striped wall 3.6 m away; a ball rolls across in front of it. Depth is
    // the distance along the optical axis, in millimetres.
    const double focal = width / (2.0 * std::tan(0.5 * 58.0 * 3.14159265 / 180.0));
    const double pitch = 0.30, cp = std::cos(pitch), sp = std::sin(pitch);
    const double cameraHeight = 1200.0, wall = 3600.0, radius = 420.0;
    const double bx = 1100.0 * std::sin(t * 0.9), bz = 2300.0 + 500.0 * std::cos(t * 0.9), by = -cameraHeight + radius;
    for (int v = 0; v < height; ++v) {
        uint16_t* d = depth.ptr<uint16_t>(v);
        uint16_t* ir = infrared.ptr<uint16_t>(v);
        for (int u = 0; u < width; ++u) {
            // Ray in camera coordinates (z forward, y up), turned into the room.
            const double cx = (u - width / 2.0) / focal, cy = -(v - height / 2.0) / focal;
            const double dx = cx, dy = cy * cp - sp, dz = cy * sp + cp;
            double hit = 1e9, reflect = 0.0;
            if (dy < 0) {
                hit = -cameraHeight / dy; // floor
                const double fx = hit * dx, fz = hit * dz;
                reflect = ((static_cast<int>(std::floor(fx / 500.0)) + static_cast<int>(std::floor(fz / 500.0))) & 1)
                    ? 0.8
                    : 0.55;
            }
            if (dz > 0 && wall / dz < hit) {
                hit = wall / dz; // wall
                reflect = (static_cast<int>(std::floor((hit * dx + 5000.0) / 300.0)) & 1) ? 0.9 : 0.6;
            }
            // Ball: |hit * dir - centre| = radius.
            const double a = dx * dx + dy * dy + dz * dz;
            const double b = -2.0 * (dx * bx + dy * by + dz * bz);
            const double c = bx * bx + by * by + bz * bz - radius * radius;
            const double disc = b * b - 4 * a * c;
            if (disc >= 0) {
                const double near = (-b - std::sqrt(disc)) / (2 * a);
                if (near > 0 && near < hit) {
                    hit = near;
                    reflect = 1.0;
                }
            }
            const double range = std::min(hit, 65535.0);
            d[u] = static_cast<uint16_t>(range);
            ir[u] = static_cast<uint16_t>(std::min(4095.0, 4095.0 * reflect * std::min(1.0, 2.2e6 / (range * range))));
        }
    }
}

std::vector<cv::Mat> loadImages(const std::vector<std::string>& files)
{
    std::vector<cv::Mat> images;
    for (const std::string& file : files) {
        cv::Mat bgr = cv::imread(file, cv::IMREAD_COLOR);
        if (bgr.empty())
            throw std::runtime_error("cannot read image '" + file + "'");
        cv::Mat rgb;
        cv::cvtColor(bgr, rgb, cv::COLOR_BGR2RGB);
        images.push_back(rgb);
    }
    return images;
}

} // namespace scene
