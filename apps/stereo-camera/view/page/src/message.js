// SPDX-License-Identifier: Apache-2.0
// Binary messages of the server: a header of 32 bytes, then a JPEG, or ranges and a JPEG.

const headerBytes = 32;
const views = ["raw-left", "raw-right", "left", "right", "lonlat-left", "lonlat-right", "range", "range-color"];

// Of a range picture's values, those from here on say why there is none.
export const firstReason = 65530;

export function parseMessage(buffer) {
  const header = new DataView(buffer);
  const message = {
    hasRange: header.getUint8(0) === 2,
    view: views[header.getUint8(1)],
    camera: header.getUint16(2, true),
    number: header.getUint32(4, true),
    captureTime_us: header.getFloat64(8, true),
    width: header.getUint16(16, true),
    height: header.getUint16(18, true),
    age_ms: header.getFloat32(24, true),
    range_mm: null,
  };
  let start = headerBytes;
  if (message.hasRange) {
    // Every browser runs on little-endian machines, so the bytes need no turning.
    message.range_mm = new Uint16Array(buffer, headerBytes, message.width * message.height);
    start += message.range_mm.byteLength;
  }
  message.jpeg = new Blob([new Uint8Array(buffer, start)], { type: "image/jpeg" });
  return message;
}
