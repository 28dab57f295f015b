// SPDX-License-Identifier: Apache-2.0
#include "src/system/ImageMemory.hpp"

#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/Images.hpp"

using stereo::sys::ImageMemoryUser;
using stereo::sys::maxKept;
using stereo::sys::recycledCopy;
using stereo::sys::recycledImage;
using stereo::test::sameBits;

namespace {

// Under these sanitizers images use ordinary memory, so that they see errors in it.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool recycles = false;
#else
constexpr bool recycles = true;
#endif

constexpr int side = 100;

unsigned char* addressOfOneImage(int type = CV_8UC3) {
  cv::Mat image = recycledImage();
  image.create(side, side, type);
  return image.data;
}

}  // namespace

TEST(ImageMemory, AnImageIsEmptyAtFirstAndThenLikeAnyOther) {
  const ImageMemoryUser user;
  cv::Mat image = recycledImage();
  EXPECT_TRUE(image.empty());
  const cv::Mat source(7, 5, CV_32FC2, cv::Scalar(1.5, -2));
  source.copyTo(image);
  EXPECT_TRUE(sameBits(image, source));
  EXPECT_TRUE(image.isContinuous());
  EXPECT_EQ(image.step[0], 5U * 8U);
  const cv::Mat copy = recycledCopy(source(cv::Rect(1, 2, 3, 4)));
  EXPECT_TRUE(sameBits(copy, source(cv::Rect(1, 2, 3, 4))));
  EXPECT_TRUE(recycledCopy(cv::Mat()).empty());
  // Shapes that are not pictures are not pooled, but work.
  cv::Mat cube = recycledImage();
  const int sizes[] = {3, 4, 5};
  cube.create(3, sizes, CV_8UC1);
  EXPECT_EQ(cube.total(), 60U);
}

TEST(ImageMemory, WhatOneImageGaveBackServesTheNextOfItsSize) {
  const ImageMemoryUser user;
  unsigned char* const first = addressOfOneImage();
  cv::Mat other = recycledImage();
  other.create(2 * side, side, CV_8UC3);
  EXPECT_NE(other.data, first);
  cv::Mat image = recycledImage();
  image.create(side, side, CV_8UC3);
  if (recycles) {
    EXPECT_EQ(image.data, first);
  }
  // In use: two images never share memory.
  cv::Mat another = recycledImage();
  another.create(side, side, CV_8UC3);
  EXPECT_NE(another.data, image.data);
}

TEST(ImageMemory, AHeaderThatIsKeptKeepsThePixels) {
  cv::Mat kept;
  {
    const ImageMemoryUser user;
    {
      cv::Mat image = recycledImage();
      image.create(side, side, CV_8UC3);
      image.setTo(cv::Scalar::all(9));
      kept = image;
    }
    cv::Mat next = recycledImage();
    next.create(side, side, CV_8UC3);
    next.setTo(cv::Scalar::all(200));
    EXPECT_NE(next.data, kept.data);
  }
  // Outlives every user.
  EXPECT_TRUE(sameBits(kept, cv::Mat(side, side, CV_8UC3, cv::Scalar::all(9))));
  kept.create(2 * side, side, CV_8UC3);
  kept.setTo(cv::Scalar::all(1));
  EXPECT_EQ(kept.at<cv::Vec3b>(2 * side - 1, side - 1), cv::Vec3b(1, 1, 1));
}

TEST(ImageMemory, TheOldestBlockMakesRoomForNewOnes) {
  const ImageMemoryUser user;
  addressOfOneImage();  // kept first
  std::vector<const unsigned char*> addresses;
  {
    std::vector<cv::Mat> images;
    for (int k = 0; k < maxKept; ++k) {
      images.push_back(recycledImage());
      images.back().create(2 * side + k, side, CV_8UC3);
      addresses.push_back(images.back().data);
    }
  }
  // All of these are kept, although there was one too many.
  std::vector<cv::Mat> images;
  for (int k = 0; k < maxKept; ++k) {
    images.push_back(recycledImage());
    images.back().create(2 * side + k, side, CV_8UC3);
    if (recycles) {
      EXPECT_EQ(images.back().data, addresses[static_cast<std::size_t>(k)]) << k;
    }
  }
}

TEST(ImageMemory, ThreadsTakeAndGiveBackAtOnce) {
  const ImageMemoryUser user;
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([t] {
      for (int n = 0; n < 500; ++n) {
        cv::Mat image = recycledImage();
        image.create(side, side + n % 3, CV_8UC1);
        image.setTo(cv::Scalar(t + 1));
        EXPECT_EQ(cv::countNonZero(image != t + 1), 0);
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
}

// A child process has none of the threads that may hold the lock at the fork.
TEST(ImageMemory, AChildMadeAmidTheTrafficIsNotHeldUp) {
  if (!recycles) {
    GTEST_SKIP() << "images are like any other under this sanitizer";
  }
  const ImageMemoryUser user;
  // OpenCV sets up its own memory with the first image of a process, and a child forked meanwhile waits forever
  // for the thread that does it.
  addressOfOneImage();
  std::atomic<bool> done{false};
  std::vector<std::thread> threads;
  for (int t = 0; t < 2; ++t) {
    threads.emplace_back([&] {
      while (!done) {
        addressOfOneImage();
      }
    });
  }
  int finished = 0;
  constexpr int children = 60;
  for (int n = 0; n < children; ++n) {
    const pid_t child = fork();
    if (child == 0) {
      alarm(30);  // ends it with a signal where it hangs
      for (int k = 0; k < 20; ++k) {
        addressOfOneImage();
      }
      _exit(0);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    finished += WIFEXITED(status) && WEXITSTATUS(status) == 0 ? 1 : 0;
  }
  done = true;
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(finished, children);
}
