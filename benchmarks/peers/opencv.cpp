// OpenCV converts whole matrices. It has no conversion to YUY2: from RGB the nearest is to 4:4:4.
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "peers.h"

namespace OX::benchmarks {
namespace {

cv::Mat frame(const unsigned char* pData, int pWidth, int pHeight, int pType) {
  return {pHeight, pWidth, pType, const_cast<unsigned char*>(pData)};
}

/// pDestination is allocated already and written in place.
Run convertRun(cv::Mat pSource, cv::Mat pDestination, int pCode) {
  return [=]() mutable { cv::cvtColor(pSource, pDestination, pCode); };
}

Run fromYuy2Run(const Job& pJob, int pCode, int pType) {
  const cv::Mat source = frame(pJob.source, pJob.sourceWidth, pJob.sourceHeight, CV_8UC2);
  cv::Mat destination = frame(pJob.destination, pJob.width, pJob.height, pType);
  if (!pJob.resizes()) return convertRun(source, destination, pCode);
  // Four bytes of YUY2 serve as one pixel of four channels: decimation keeps macro-pixels whole.
  const cv::Mat wide = frame(pJob.source, pJob.sourceWidth / 2, pJob.sourceHeight, CV_8UC4);
  cv::Mat small(pJob.height, pJob.width, CV_8UC2);
  cv::Mat macroPixels = frame(small.data, pJob.width / 2, pJob.height, CV_8UC4);
  return [=]() mutable {
    cv::resize(wide, macroPixels, macroPixels.size(), 0, 0, cv::INTER_NEAREST);
    cv::cvtColor(small, destination, pCode);
  };
}

Run hueRun(const Job& pJob) {
  if (pJob.resizes()) return {};
  const cv::Mat source = frame(pJob.source, pJob.width, pJob.height, CV_8UC2);
  cv::Mat rgb(pJob.height, pJob.width, CV_8UC3);
  cv::Mat destination = frame(pJob.destination, pJob.width, pJob.height, CV_8UC3);
  return [=]() mutable {
    cv::cvtColor(source, rgb, cv::COLOR_YUV2RGB_YUY2);
    cv::cvtColor(rgb, destination, cv::COLOR_RGB2HSV_FULL);
  };
}

Run fromRGBRun(const Job& pJob) {
  const cv::Mat source = frame(pJob.source, pJob.sourceWidth, pJob.sourceHeight, CV_8UC3);
  cv::Mat yuv(pJob.height, pJob.width, CV_8UC3);
  if (!pJob.resizes()) return convertRun(source, yuv, cv::COLOR_RGB2YUV);
  if (pJob.width < pJob.sourceWidth) {
    cv::Mat small(pJob.height, pJob.width, CV_8UC3);
    return [=]() mutable {
      cv::resize(source, small, small.size(), 0, 0, cv::INTER_NEAREST);
      cv::cvtColor(small, yuv, cv::COLOR_RGB2YUV);
    };
  }
  cv::Mat small(pJob.sourceHeight, pJob.sourceWidth, CV_8UC3);
  return [=]() mutable {
    cv::cvtColor(source, small, cv::COLOR_RGB2YUV);
    cv::resize(small, yuv, yuv.size(), 0, 0, cv::INTER_NEAREST);
  };
}

}  // namespace

Run opencvRun(const Job& pJob) {
  cv::setNumThreads(1);
  switch (pJob.kind) {
    case Job::kToRGB:
      return fromYuy2Run(pJob, cv::COLOR_YUV2RGB_YUY2, CV_8UC3);
    case Job::kToBGR:
      return fromYuy2Run(pJob, cv::COLOR_YUV2BGR_YUY2, CV_8UC3);
    case Job::kToLuma:
      return fromYuy2Run(pJob, cv::COLOR_YUV2GRAY_YUY2, CV_8UC1);
    case Job::kToHue:
      return hueRun(pJob);
    case Job::kFromRGB:
      return fromRGBRun(pJob);
    default:
      return {};
  }
}

}  // namespace OX::benchmarks
