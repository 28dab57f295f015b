// SPDX-License-Identifier: Apache-2.0
// Reads images of the left eye from the shared memory of a running camera and writes them as PPM files: plain C11, no
// library. examples/segment_reader.cpp explains each step.
//
//   segment_reader KEY WIDTH HEIGHT COUNT PREFIX
//
// For instance, next to `stereo-camera share`: segment_reader 9000 928 800 5 left-
//
// Needs a C compiler, and a camera that shares its left eye.
#define _XOPEN_SOURCE 700
#include <errno.h>
#include <stdatomic.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/shm.h>
#include <time.h>

enum { unused = 0, written = 2, patienceMs = 10000, pollMs = 1, settleMs = 5 };

static int fail(const char* what) {
  fprintf(stderr, "segment_reader: %s\n", what);
  return 1;
}

static void pause_ms(long milliseconds) {
  const struct timespec time = {0, milliseconds * 1000000};
  nanosleep(&time, NULL);
}

static long now_ms(void) {
  struct timespec time;
  clock_gettime(CLOCK_MONOTONIC, &time);
  return (long)time.tv_sec * 1000 + time.tv_nsec / 1000000;
}

// Waits for the mark and copies the image to `image`; `again` is as large. 0 if none came, or it kept changing.
static int take(_Atomic int32_t* status, unsigned char* image, unsigned char* again, size_t bytes) {
  const unsigned char* const pixels = (const unsigned char*)(status + 1);
  const long end = now_ms() + patienceMs;
  while (atomic_load_explicit(status, memory_order_acquire) != written) {
    if (now_ms() > end) {
      return 0;
    }
    pause_ms(pollMs);
  }
  // The mark comes before the pixels, so the image is complete once it has stopped changing.
  pause_ms(settleMs);
  memcpy(again, pixels, bytes);
  do {
    memcpy(image, again, bytes);
    pause_ms(settleMs);
    memcpy(again, pixels, bytes);
    if (now_ms() > end) {
      return 0;
    }
  } while (memcmp(image, again, bytes) != 0);
  atomic_store_explicit(status, unused, memory_order_release);  // requests the next one
  return 1;
}

static int write_ppm(const char* path, const unsigned char* bgr, long width, long height) {
  FILE* const file = fopen(path, "wb");
  if (file == NULL) {
    return 0;
  }
  fprintf(file, "P6\n%ld %ld\n255\n", width, height);
  for (long i = 0; i < width * height; ++i, bgr += 3) {
    putc(bgr[2], file);
    putc(bgr[1], file);
    putc(bgr[0], file);
  }
  const int good = ferror(file) == 0;
  return fclose(file) == 0 && good;
}

int main(int argc, char** argv) {
  long numbers[4] = {0};  // key, width, height, count
  int good = argc == 6;
  for (int i = 0; good && i < 4; ++i) {
    char* end = NULL;
    numbers[i] = strtol(argv[i + 1], &end, 10);
    const long most = i == 1 || i == 2 ? 32767 : INT32_MAX;
    good = *argv[i + 1] != '\0' && *end == '\0' && numbers[i] > 0 && numbers[i] <= most;
  }
  if (!good) {
    fputs("usage: segment_reader KEY WIDTH HEIGHT COUNT PREFIX\n", stderr);
    return 2;
  }
  const size_t bytes = (size_t)numbers[1] * (size_t)numbers[2] * 3;

  int id = -1;
  const long end = now_ms() + patienceMs;
  // The system refuses a segment that is smaller than requested (EINVAL).
  while ((id = shmget((key_t)numbers[0], bytes + sizeof(int32_t), 0)) == -1 && errno == ENOENT && now_ms() < end) {
    pause_ms(pollMs);
  }
  if (id == -1 && errno == ENOENT) {
    return fail("no segment with this key: does the camera run, with shared memory, at this position?");
  }
  if (id == -1) {
    return fail(errno == EINVAL ? "the segment is smaller: is the size that of one eye?" : strerror(errno));
  }
  void* const segment = shmat(id, NULL, 0);  // writable, to reset the status word
  unsigned char* const image = malloc(2 * bytes);
  if ((intptr_t)segment == -1 || image == NULL) {
    return fail("the segment cannot be mapped");
  }
  for (long i = 0; i < numbers[3]; ++i) {
    char path[4096];
    const int length = snprintf(path, sizeof path, "%s%ld.ppm", argv[5], i);
    if (!take(segment, image, image + bytes, bytes)) {
      return fail(
          "no complete image for 10 s: was the camera stopped, or does another program also read this segment?");
    }
    if (length < 0 || (size_t)length >= sizeof path || !write_ppm(path, image, numbers[1], numbers[2])) {
      return fail("cannot write the image");
    }
    puts(path);
  }
  free(image);
  return shmdt(segment) == 0 ? 0 : fail("the segment cannot be unmapped");
}
