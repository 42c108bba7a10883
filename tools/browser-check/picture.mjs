// Reads a screenshot just far enough to see whether anything is drawn on it.
import { inflateSync } from 'node:zlib';

/** True when every pixel of this PNG, of 8 bits a channel without interlacing, has the same colour. */
export function isOneColour(png) {
  const { width, channels, rows } = decode(png);
  const first = rows[0].subarray(0, channels);
  const line = Buffer.alloc(width * channels);
  for (let at = 0; at < line.length; at += channels)
    first.copy(line, at);
  return rows.every(row => row.equals(line));
}

function decode(png) {
  const header = png.indexOf('IHDR') + 4;
  const width = png.readUInt32BE(header);
  const height = png.readUInt32BE(header + 4);
  const channels = png[header + 9] === 6 ? 4 : 3;
  return { width, channels, rows: unfiltered(inflateSync(imageData(png)), width * channels, height, channels) };
}

function imageData(png) {
  const signature = 8;
  const around = 12; // Length, type and check sum of a chunk.
  const parts = [];
  for (let at = signature; at < png.length; at += around + png.readUInt32BE(at)) {
    if (png.toString('latin1', at + 4, at + 8) === 'IDAT')
      parts.push(png.subarray(at + 8, at + 8 + png.readUInt32BE(at)));
  }
  return Buffer.concat(parts);
}

// Each row begins with the number of its filter: what is to be added to every byte, made from the pixel to the left,
// the one above and the one to the left of that.
function unfiltered(raw, length, height, channels) {
  const rows = [];
  let above = Buffer.alloc(length);
  for (let y = 0; y < height; ++y) {
    const start = y * (length + 1);
    above = unfilteredRow(raw[start], raw.subarray(start + 1, start + 1 + length), above, channels);
    rows.push(above);
  }
  return rows;
}

function unfilteredRow(filter, row, above, channels) {
  for (let at = 0; at < row.length; ++at) {
    const left = at >= channels ? row[at - channels] : 0;
    const corner = at >= channels ? above[at - channels] : 0;
    row[at] += prediction(filter, left, above[at], corner);
  }
  return row;
}

function prediction(filter, left, up, corner) {
  switch (filter) {
  case 1: return left;
  case 2: return up;
  case 3: return (left + up) >> 1;
  case 4: return nearest(left, up, corner);
  default: return 0;
  }
}

function nearest(left, up, corner) {
  const guess = left + up - corner;
  const byLeft = Math.abs(guess - left);
  const byUp = Math.abs(guess - up);
  const byCorner = Math.abs(guess - corner);
  if (byLeft <= byUp && byLeft <= byCorner)
    return left;
  return byUp <= byCorner ? up : corner;
}
