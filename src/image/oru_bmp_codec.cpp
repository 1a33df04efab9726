// The BMP reader and writer. The reader takes the headers and colour table into a small
// buffer, checks that the rows the header claims are in the file, and only then makes
// the image and streams the rows into it: a hostile header can only make it refuse,
// never read past a buffer or allocate what it claims. Streaming the rows rather than
// holding the whole file halves the memory touched on large frames.
#include <climits>
#include <cstdio>
#include <cstring>

#include "core/oru_report.h"
#include "core/oru_scratch.h"
#include "image/oru_image_internal.h"

namespace {

using oru::Scratch;

// Little-endian fields of the file; a field that runs past the end reads as 0.
struct Bytes {
  const uint8_t *p;
  int64_t n;
  uint32_t u16(int64_t off) const { return off >= 0 && off + 2 <= n ? uint32_t(p[off] | p[off + 1] << 8) : 0u; }
  uint32_t u32(int64_t off) const {
    return off >= 0 && off + 4 <= n ? uint32_t(p[off]) | uint32_t(p[off + 1]) << 8 | uint32_t(p[off + 2]) << 16 |
                                          uint32_t(p[off + 3]) << 24
                                    : 0u;
  }
};

struct BmpHeader {
  int64_t offbits = 0;
  int64_t width = 0;
  int64_t height = 0;  // signed: negative means the first file row is the top row
  uint32_t bits = 0;
  uint32_t compression = 0;
  bool colour = false;
  uint8_t palette[256][3] = {};  // blue, green, red
};

void copy_palette(BmpHeader &h, const Bytes &f, int64_t at, int64_t entries, int entry_bytes) {
  if (entries > 256) entries = 256;
  for (int64_t i = 0; i < entries; ++i) {
    const int64_t off = at + i * entry_bytes;
    if (off + 3 > f.n) break;  // a table longer than the file stops at its end
    std::memcpy(h.palette[i], f.p + off, 3);
  }
}

bool palette_has_colour(const BmpHeader &h, uint32_t bits) {
  for (int i = 0; i < (1 << bits); ++i)
    if (h.palette[i][0] != h.palette[i][1] || h.palette[i][1] != h.palette[i][2]) return true;
  return false;
}

void parse_header(BmpHeader &h, const Bytes &f) {
  h.offbits = f.u32(10);
  const int32_t header_size = int32_t(f.u32(14));
  if (header_size >= 36) {
    h.width = int32_t(f.u32(18));
    h.height = int32_t(f.u32(22));
    h.bits = f.u16(28);
    h.compression = f.u32(30);
    const uint32_t used = f.u32(46);
    const int64_t table = 14 + int64_t(header_size);
    if (h.width < 1 || h.height == 0) return;
    const uint32_t b = h.bits, c = h.compression;
    if (((b == 1 || b == 4 || b == 8) && c == 0) || (b == 4 && c == 2) || (b == 8 && c == 1)) {
      copy_palette(h, f, table, used ? int64_t(used) : int64_t(1) << b, 4);
      h.colour = palette_has_colour(h, b);
    } else if ((b == 24 || b == 32) && c == 0) {
      h.colour = true;
    } else if (b == 16 && c == 0) {
      h.colour = true;
      h.bits = 15;
    } else if (b == 16 && c == 3) {
      h.colour = true;
      const bool r555 = f.u32(table) == 0x7C00 && f.u32(table + 4) == 0x3E0 && f.u32(table + 8) == 0x1F;
      h.bits = r555 ? 15 : 16;
    }
  } else if (header_size == 12) {
    h.width = f.u16(18);
    h.height = f.u16(20);
    h.bits = f.u16(24);
    if (h.width >= 1 && h.height >= 1 && (h.bits == 1 || h.bits == 4 || h.bits == 8))
      copy_palette(h, f, 26, int64_t(1) << h.bits, 3);
  }
}

// Streams the rows of a 24-bit or uncompressed 8-bit file into the image, in file order.
bool decode_rows(oru_image *im, const BmpHeader &h, FILE *file, int64_t row_bytes) {
  const int32_t w = im->cols, rows = im->rows;
  const bool direct = h.bits == 24 && im->channels == 3;
  Scratch<uint8_t> line;
  if (!direct && !line.reset(row_bytes)) return false;
  uint8_t luma[256];
  for (int i = 0; i < 256; ++i) luma[i] = oru::luma_bgr(h.palette[i][0], h.palette[i][1], h.palette[i][2]);
  if (std::fseek(file, long(h.offbits), SEEK_SET) != 0) return false;
  uint8_t pad[4];
  const size_t payload = size_t(w) * 3, skip = size_t(row_bytes) - payload;
  for (int32_t i = 0; i < rows; ++i) {
    uint8_t *d = static_cast<uint8_t *>(im->data) + int64_t(h.height > 0 ? rows - 1 - i : i) * im->stride;
    if (direct) {
      // The three-channel copy of a 24-bit row lands straight in the image.
      if (std::fread(d, 1, payload, file) != payload || std::fread(pad, 1, skip, file) != skip) return false;
      continue;
    }
    const uint8_t *s = line.get();
    if (std::fread(line.get(), 1, size_t(row_bytes), file) != size_t(row_bytes)) return false;
    if (h.bits == 24) {
      for (int32_t x = 0; x < w; ++x) d[x] = oru::luma_bgr(s[3 * x], s[3 * x + 1], s[3 * x + 2]);
    } else if (im->channels == 3) {
      for (int32_t x = 0; x < w; ++x) std::memcpy(d + 3 * x, h.palette[s[x]], 3);
    } else {
      for (int32_t x = 0; x < w; ++x) d[x] = luma[s[x]];
    }
  }
  return true;
}

oru_image *read_bmp(FILE *file, uint32_t mode) {
  uint8_t magic[18] = {};
  const size_t got = std::fread(magic, 1, sizeof magic, file);
  std::rewind(file);
  static const uint8_t png[8] = {0x89, 0x50, 0x4E, 0x47, 0x0D, 0x0A, 0x1A, 0x0A};
  if (got >= 3 && magic[0] == 0xFF && magic[1] == 0xD8 && magic[2] == 0xFF) return nullptr;
  if (got >= 8 && std::memcmp(magic, png, 8) == 0) return nullptr;
  if (got < 2 || magic[0] != 'B' || magic[1] != 'M') return nullptr;

  if (std::fseek(file, 0, SEEK_END) != 0) return nullptr;
  const long length = std::ftell(file);
  std::rewind(file);
  if (length <= 0) return nullptr;
  // Everything the header and colour table can reach: the info header, three masks
  // and 256 entries of four bytes.
  const Bytes probe{magic, int64_t(got)};
  const int64_t header_size = int32_t(probe.u32(14));
  int64_t head = 14 + (header_size > 0 ? header_size : 0) + 12 + 1024;
  if (head > length) head = length;
  Scratch<uint8_t> buffer(head);
  if (!buffer) ORU_FAIL_MSG(nullptr, "Allocating memory failure! ");
  const Bytes f{buffer.get(), int64_t(std::fread(buffer.get(), 1, size_t(head), file))};

  BmpHeader h;
  parse_header(h, f);
  const uint32_t format = mode == 0 ? (h.colour ? ORU_IMAGE_BGR24 : ORU_IMAGE_GRAY8)
                                    : mode == 1 ? ORU_IMAGE_GRAY8 : ORU_IMAGE_BGR24;
  const int64_t rows = h.height < 0 ? -h.height : h.height;
  if (h.width < 1 || rows < 1 || rows > INT32_MAX) {
    // The creation refuses the size, with its report.
    oru_image *none = oru_create_image(int32_t(h.width), int32_t(h.height), format);
    oru::drop_image(none);
    return nullptr;
  }
  const bool decodable = h.bits == 24 || (h.bits == 8 && h.compression == 0);
  if (!decodable) return nullptr;
  const int64_t row_bytes = ((h.width * h.bits + 7) / 8 + 3) & ~int64_t(3);
  // The rows must be in the file before an image of the claimed size is made.
  if (h.offbits + row_bytes * rows > length) ORU_FAIL_MSG(nullptr, "Data length is not enough!");
  oru_image *im = oru_create_image(int32_t(h.width), int32_t(rows), format);
  if (!im) return nullptr;
  if (!decode_rows(im, h, file, row_bytes)) {
    oru::drop_image(im);
    ORU_FAIL_MSG(nullptr, "Data length is not enough!");
  }
  return im;
}

bool has_suffix(const char *suffix, const char *a, const char *b) {
  return std::strcmp(suffix, a) == 0 || std::strcmp(suffix, b) == 0;
}

void put16(uint8_t *p, uint32_t v) {
  p[0] = uint8_t(v);
  p[1] = uint8_t(v >> 8);
}
void put32(uint8_t *p, uint32_t v) {
  put16(p, v);
  put16(p + 2, v >> 16);
}

uint32_t write_bmp(FILE *file, const oru_image *im) {
  const int32_t channels = im->format == ORU_IMAGE_GRAY8 ? 1 : 3;
  const uint32_t head = channels == 1 ? 1078u : 54u;
  const int64_t row_bytes = (int64_t(im->cols) * channels + 3) & ~int64_t(3);
  uint8_t header[54] = {'B', 'M'};
  put32(header + 2, uint32_t(head + row_bytes * im->rows));
  put32(header + 10, head);
  put32(header + 14, 40);
  put32(header + 18, uint32_t(im->cols));
  put32(header + 22, uint32_t(im->rows));
  put16(header + 26, 1);
  put16(header + 28, uint32_t(channels * 8));
  bool ok = std::fwrite(header, 1, sizeof header, file) == sizeof header;
  if (channels == 1) {
    uint8_t table[1024];
    for (int i = 0; i < 256; ++i) {
      table[4 * i] = table[4 * i + 1] = table[4 * i + 2] = uint8_t(i);
      table[4 * i + 3] = 0;
    }
    ok = ok && std::fwrite(table, 1, sizeof table, file) == sizeof table;
  }
  // Rows go out in chunks of about 256 KB: one write call per chunk, not two per row.
  const size_t payload = size_t(im->cols) * size_t(channels);
  const int64_t per_chunk = row_bytes >= (int64_t(1) << 18) ? 1 : (int64_t(1) << 18) / row_bytes;
  Scratch<uint8_t> chunk(per_chunk * row_bytes, true);
  if (!chunk) ORU_FAIL_MSG(ORU_RET_ERR_MEMORY, "Allocating memory failure! ");
  int64_t filled = 0;
  for (int32_t y = im->rows - 1; ok && y >= 0; --y) {
    std::memcpy(chunk.get() + filled * row_bytes, static_cast<const uint8_t *>(im->data) + y * im->stride, payload);
    if (++filled == per_chunk || y == 0) {
      const size_t bytes = size_t(filled * row_bytes);
      ok = std::fwrite(chunk.get(), 1, bytes, file) == bytes;
      filled = 0;
    }
  }
  if (!ok) ORU_REPORT("Data length is not enough!");
  return ORU_RET_OK;
}

}  // namespace

extern "C" {

ORU_API oru_image *oru_create_image_from_file(const char *path, uint32_t mode) {
  if (!path) ORU_FAIL_MSG(nullptr, "file name is null!");
  FILE *file = std::fopen(path, "rb");
  if (!file) ORU_FAIL_MSG(nullptr, "Opening file errors!");
  oru_image *im = read_bmp(file, mode);
  std::fclose(file);
  return im;
}

ORU_API uint32_t oru_image_write_to_file_with_level(const char *path, oru_image *image) {
  if (!path || !oru::is_image(image) || (image->format >= 6 && image->format != ORU_IMAGE_BGR48))
    ORU_FAIL_MSG(ORU_RET_ERR_PARA, "Your input params are wrong!");
  const char *suffix = std::strrchr(path, '.');
  if (!suffix) return ORU_RET_ERR_PARA;
  if (image->format == ORU_IMAGE_RGB24) {
    const uint32_t st = oru_image_color_space_convert(image, image, ORU_COLOR_RGB2BGR);
    if (st != ORU_RET_OK) return st;
  }
  oru::Guard<oru_image, oru::release_image_record> temp;
  if (image->format == ORU_IMAGE_YUV420P) {
    temp.reset(oru_create_image(image->cols, image->rows, ORU_IMAGE_BGR24));
    if (!temp.get()) return ORU_RET_ERR_MEMORY;
    const uint32_t st = oru_image_color_space_convert(temp.get(), image, ORU_COLOR_YUV420P2BGR);
    if (st != ORU_RET_OK) return st;
    image = temp.get();
  }
  const uint32_t f = image->format;
  const bool png = has_suffix(suffix, ".png", ".PNG");
  if ((f == ORU_IMAGE_FORMAT_3 || f == ORU_IMAGE_FORMAT_4 || f == ORU_IMAGE_BGR48) && !png)
    ORU_FAIL_MSG(ORU_RET_ERR_DATA_LENGTH, "48 bit must save to be PNG format!\n");
  if (!has_suffix(suffix, ".bmp", ".BMP")) {
    if (png || has_suffix(suffix, ".jpg", ".JPG")) return ORU_RET_ERR_DATA_LENGTH;
    ORU_FAIL_MSG(ORU_RET_ERR_NOT_SUPPORT, "Current version can not support!");
  }
  FILE *file = std::fopen(path, "wb");
  if (!file) ORU_FAIL_MSG(ORU_RET_ERR_OPEN_FILE, "Opening file errors!");
  const uint32_t st = write_bmp(file, image);
  std::fclose(file);
  return st;
}

}  // extern "C"
