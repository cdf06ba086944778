#include "image_io.h"

#include <jpeglib.h>
#include <png.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "cli.h"

namespace dofra_tool {

namespace {

constexpr uint8_t kPngSignature[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'};
constexpr uint8_t kPngEnd[12] = {0, 0, 0, 0, 'I', 'E', 'N', 'D', 0xae, 0x42, 0x60, 0x82};
constexpr uint8_t kJpegSignature[3] = {0xff, 0xd8, 0xff};
// IHDR follows the signature: length, type, width, height, then depth and colour type.
constexpr size_t kPngBitDepthAt = 24;
constexpr size_t kPngColorTypeAt = 25;
constexpr uint8_t kPngColorGray = 0;
constexpr uint8_t kPngColorGrayAlpha = 4;
// Deflate expands at most 1032-fold, so a PNG's rows cannot hold more bytes
// than that many times the file's.
constexpr uint64_t kDeflateMaxRatio = 1032;
// Huffman-coded JPEG spends at least one bit per 8x8 luma block, so a file
// cannot describe more than 512 pixels per byte (arithmetic coding could, but
// no camera writes it).
constexpr uint64_t kJpegMaxPixelsPerByte = 512;
constexpr uint64_t kMaxFileBytes = uint64_t{1} << 30;

struct FileCloser {
  void operator()(FILE* f) const { fclose(f); }
};
using File = std::unique_ptr<FILE, FileCloser>;

std::string Errno() { return std::strerror(errno); }

std::string SizeText(uint64_t width, uint64_t height) {
  return std::to_string(width) + "x" + std::to_string(height);
}

enum class Format { kPng, kJpeg };

Format Sniff(const std::string& path, const std::vector<uint8_t>& bytes) {
  if (bytes.size() > kPngColorTypeAt &&
      std::equal(std::begin(kPngSignature), std::end(kPngSignature), bytes.begin())) {
    return Format::kPng;
  }
  if (bytes.size() >= sizeof(kJpegSignature) &&
      std::equal(std::begin(kJpegSignature), std::end(kJpegSignature), bytes.begin())) {
    return Format::kJpeg;
  }
  throw InputError(path + " is neither a PNG nor a JPEG picture");
}

// What is wrong with the size a header claims, checked before anything of
// that size exists ("" if nothing): beyond the picture limit, larger than
// `most`, or more than a file of `file_bytes` can encode (`least_bytes`).
std::string ClaimProblem(const std::string& path, uint64_t width, uint64_t height, Size most,
                         uint64_t least_bytes, uint64_t file_bytes) {
  if (width < 1 || height < 1 || width > kMaxPictureSide || height > kMaxPictureSide ||
      width * height > kMaxPicturePixels) {
    return path + ": a " + SizeText(width, height) +
           " picture is beyond the limit of 100 megapixels and 16384 per side";
  }
  if (width > static_cast<uint64_t>(most.width) || height > static_cast<uint64_t>(most.height)) {
    return path + ": a " + SizeText(width, height) + " map is larger than the " +
           SizeText(most.width, most.height) + " picture";
  }
  if (least_bytes > file_bytes) {
    return path + ": truncated or damaged (a " + SizeText(width, height) + " picture needs " +
           std::to_string(least_bytes) + " bytes or more, the file holds " +
           std::to_string(file_bytes) + ")";
  }
  return "";
}

// Channels of each PNG colour type (gray, -, RGB, palette, gray+alpha, -, RGBA).
constexpr uint64_t kPngChannels[7] = {1, 0, 3, 1, 2, 0, 4};

// The fewest file bytes that can hold the rows the PNG header describes.
uint64_t PngLeastBytes(const std::vector<uint8_t>& bytes, uint64_t width, uint64_t height) {
  const uint64_t depth = bytes[kPngBitDepthAt];
  const uint8_t color_type = bytes[kPngColorTypeAt];
  const uint64_t channels = color_type < 7 ? kPngChannels[color_type] : 1;
  const uint64_t row_bytes = (width * channels * depth + 7) / 8 + 1;  // + filter byte
  return height * row_bytes / kDeflateMaxRatio;
}

// The last 12 bytes are the empty IEND chunk: nothing was cut off, not even
// after the picture's rows (which the decoder would not notice).
bool EndsWithPngEnd(const std::vector<uint8_t>& bytes) {
  return bytes.size() >= sizeof(kPngEnd) &&
         std::equal(std::begin(kPngEnd), std::end(kPngEnd), bytes.end() - sizeof(kPngEnd));
}

Image DecodePng(const std::string& path, const std::vector<uint8_t>& bytes, uint32_t format,
                int channels, Size most) {
  png_image png;
  std::memset(&png, 0, sizeof(png));
  png.version = PNG_IMAGE_VERSION;
  if (!png_image_begin_read_from_memory(&png, bytes.data(), bytes.size())) {
    throw InputError(path + ": unreadable PNG (" + png.message + ")");
  }
  const std::string problem = ClaimProblem(
      path, png.width, png.height, most, PngLeastBytes(bytes, png.width, png.height), bytes.size());
  if (!problem.empty() || !EndsWithPngEnd(bytes)) {
    png_image_free(&png);
    throw InputError(problem.empty() ? path + ": truncated PNG (no end chunk)" : problem);
  }
  png.format = format;
  Image image(static_cast<int>(png.width), static_cast<int>(png.height), channels);
  const bool read = png_image_finish_read(&png, nullptr, image.pixels.data(), 0, nullptr) != 0;
  const std::string message = png.message;
  const bool warned = (png.warning_or_error & PNG_IMAGE_WARNING) != 0;
  png_image_free(&png);
  if (!read || warned) throw InputError(path + ": damaged PNG (" + message + ")");
  return image;
}

struct JpegError {
  jpeg_error_mgr manager;
  jmp_buf escape;
  char message[JMSG_LENGTH_MAX];
};

void OnJpegError(j_common_ptr info) {
  JpegError* error = reinterpret_cast<JpegError*>(info->err);
  info->err->format_message(info, error->message);
  longjmp(error->escape, 1);
}

// A warning (level -1) means damaged or missing data that the decoder would
// paint grey: an error here. Trace messages (level >= 0) are ignored.
void OnJpegMessage(j_common_ptr info, int level) {
  if (level < 0) OnJpegError(info);
}

enum class JpegOutcome { kDecoded, kFailed, kNotGray, kClaim };

// Decodes into image once the header's claim has passed CheckClaim; no object
// with a destructor lives between setjmp and longjmp here.
JpegOutcome DecodeJpegInto(const std::string& path, const std::vector<uint8_t>& bytes,
                           bool gray_only, Size most, Image* image, std::string* error_text) {
  jpeg_decompress_struct info;
  JpegError error;
  info.err = jpeg_std_error(&error.manager);
  error.manager.error_exit = OnJpegError;
  error.manager.emit_message = OnJpegMessage;
  error.message[0] = '\0';
  if (setjmp(error.escape)) {
    jpeg_destroy_decompress(&info);
    *error_text = error.message;
    return JpegOutcome::kFailed;
  }
  jpeg_create_decompress(&info);
  jpeg_mem_src(&info, bytes.data(), static_cast<unsigned long>(bytes.size()));
  jpeg_read_header(&info, TRUE);
  if (gray_only && info.num_components != 1) {
    jpeg_destroy_decompress(&info);
    return JpegOutcome::kNotGray;
  }
  *error_text = ClaimProblem(path, info.image_width, info.image_height, most,
                             uint64_t{info.image_width} * info.image_height / kJpegMaxPixelsPerByte,
                             bytes.size());
  if (!error_text->empty()) {
    jpeg_destroy_decompress(&info);
    return JpegOutcome::kClaim;
  }
  info.out_color_space = gray_only ? JCS_GRAYSCALE : JCS_EXT_RGBA;
  jpeg_start_decompress(&info);
  image->width = static_cast<int>(info.output_width);
  image->height = static_cast<int>(info.output_height);
  image->channels = gray_only ? 1 : 4;
  image->pixels.resize(static_cast<size_t>(image->width) * image->height * image->channels);
  while (info.output_scanline < info.output_height) {
    JSAMPROW row = image->Row(static_cast<int>(info.output_scanline));
    jpeg_read_scanlines(&info, &row, 1);
  }
  jpeg_finish_decompress(&info);
  jpeg_destroy_decompress(&info);
  return JpegOutcome::kDecoded;
}

Image DecodeJpeg(const std::string& path, const std::vector<uint8_t>& bytes, bool gray_only,
                 Size most) {
  Image image;
  std::string error_text;
  switch (DecodeJpegInto(path, bytes, gray_only, most, &image, &error_text)) {
    case JpegOutcome::kDecoded:
      return image;
    case JpegOutcome::kNotGray:
      throw InputError(path + ": a disparity map must be 8-bit grayscale, not colour");
    case JpegOutcome::kClaim:
      throw InputError(error_text);
    case JpegOutcome::kFailed:
      break;
  }
  throw InputError(path + ": damaged JPEG (" + error_text + ")");
}

// Writes through a temporary file in the target's directory, renamed into
// place by Commit; anything not committed is removed.
class AtomicFile {
 public:
  explicit AtomicFile(const std::string& path) : path_(path) {
    const size_t slash = path.find_last_of('/');
    const std::string dir = slash == std::string::npos ? "" : path.substr(0, slash + 1);
    const std::string base = slash == std::string::npos ? path : path.substr(slash + 1);
    temp_ = dir + "." + base + ".XXXXXX";
    const int fd = mkstemp(&temp_[0]);
    if (fd < 0) throw InputError("cannot create " + path + ": " + Errno());
    file_.reset(fdopen(fd, "wb"));
    if (!file_) {
      close(fd);
      unlink(temp_.c_str());
      throw InputError("cannot create " + path + ": " + Errno());
    }
  }
  ~AtomicFile() {
    if (!committed_) {
      file_.reset();
      unlink(temp_.c_str());
    }
  }
  AtomicFile(const AtomicFile&) = delete;
  AtomicFile& operator=(const AtomicFile&) = delete;

  FILE* stream() { return file_.get(); }

  void Commit() {
    // Files from mkstemp are private; give the result the usual permissions.
    const mode_t mask = umask(0);
    umask(mask);
    fchmod(fileno(file_.get()), 0666 & ~mask);
    const bool flushed = fflush(file_.get()) == 0 && !ferror(file_.get());
    const bool closed = fclose(file_.release()) == 0;
    if (!flushed || !closed || rename(temp_.c_str(), path_.c_str()) != 0) {
      throw InputError("cannot write " + path_ + ": " + Errno());
    }
    committed_ = true;
  }

 private:
  std::string path_;
  std::string temp_;
  File file_;
  bool committed_ = false;
};

constexpr int kPngCompressionLevel = 3;  // most of the size for a fraction of the time

// Encodes into an open stream; no object with a destructor lives between
// setjmp and a libpng error's longjmp here.
bool EncodePng(FILE* stream, const Image& image, const uint8_t** rows, std::string* error_text) {
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png ? png_create_info_struct(png) : nullptr;
  if (info == nullptr) {
    png_destroy_write_struct(&png, nullptr);
    *error_text = "out of memory";
    return false;
  }
  if (setjmp(png_jmpbuf(png))) {
    png_destroy_write_struct(&png, &info);
    *error_text = "PNG encoding failed";
    return false;
  }
  const int color_type = image.channels == 1   ? PNG_COLOR_TYPE_GRAY
                         : image.channels == 3 ? PNG_COLOR_TYPE_RGB
                                               : PNG_COLOR_TYPE_RGB_ALPHA;
  png_init_io(png, stream);
  png_set_IHDR(png, info, static_cast<png_uint_32>(image.width),
               static_cast<png_uint_32>(image.height), 8, color_type, PNG_INTERLACE_NONE,
               PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  png_set_compression_level(png, kPngCompressionLevel);
  png_write_info(png, info);
  png_write_rows(png, const_cast<png_bytepp>(rows), static_cast<png_uint_32>(image.height));
  png_write_end(png, info);
  png_destroy_write_struct(&png, &info);
  return true;
}

std::vector<const uint8_t*> Rows(const Image& image) {
  std::vector<const uint8_t*> rows(static_cast<size_t>(image.height));
  for (int y = 0; y < image.height; ++y) rows[y] = image.Row(y);
  return rows;
}

}  // namespace

bool EndsWith(const std::string& text, const std::string& suffix) {
  if (text.size() < suffix.size()) return false;
  return std::equal(suffix.rbegin(), suffix.rend(), text.rbegin(), [](char a, char b) {
    return std::tolower(static_cast<unsigned char>(a)) ==
           std::tolower(static_cast<unsigned char>(b));
  });
}

std::vector<uint8_t> ReadBytes(const std::string& path) {
  struct stat info;
  if (stat(path.c_str(), &info) != 0) throw InputError("cannot read " + path + ": " + Errno());
  if (!S_ISREG(info.st_mode)) throw InputError("cannot read " + path + ": not a regular file");
  if (static_cast<uint64_t>(info.st_size) > kMaxFileBytes) {
    throw InputError("cannot read " + path + ": larger than 1 GiB");
  }
  File file(fopen(path.c_str(), "rb"));
  if (!file) throw InputError("cannot read " + path + ": " + Errno());
  std::vector<uint8_t> bytes(static_cast<size_t>(info.st_size));
  if (!bytes.empty() && fread(bytes.data(), 1, bytes.size(), file.get()) != bytes.size()) {
    throw InputError("cannot read " + path + ": short read");
  }
  return bytes;
}

void WriteBytes(const std::string& path, const std::vector<uint8_t>& bytes) {
  AtomicFile out(path);
  if (!bytes.empty() && fwrite(bytes.data(), 1, bytes.size(), out.stream()) != bytes.size()) {
    throw InputError("cannot write " + path + ": " + Errno());
  }
  out.Commit();
}

Image ReadPicture(const std::string& path, bool* has_alpha) {
  const std::vector<uint8_t> bytes = ReadBytes(path);
  *has_alpha = false;
  if (Sniff(path, bytes) == Format::kJpeg) return DecodeJpeg(path, bytes, false, kLargestPicture);
  const uint8_t color_type = bytes[kPngColorTypeAt];
  *has_alpha = (color_type & PNG_COLOR_MASK_ALPHA) != 0;
  return DecodePng(path, bytes, PNG_FORMAT_RGBA, 4, kLargestPicture);
}

Image ReadGrayMap(const std::string& path, Size most) {
  const std::vector<uint8_t> bytes = ReadBytes(path);
  if (Sniff(path, bytes) == Format::kJpeg) return DecodeJpeg(path, bytes, true, most);
  const uint8_t depth = bytes[kPngBitDepthAt];
  const uint8_t color_type = bytes[kPngColorTypeAt];
  if (color_type != kPngColorGray && color_type != kPngColorGrayAlpha) {
    throw InputError(path + ": a disparity map must be 8-bit grayscale, not colour");
  }
  if (depth != 8) {
    throw InputError(path + ": a disparity map must be 8-bit grayscale, not " +
                     std::to_string(depth) + "-bit");
  }
  return DecodePng(path, bytes, PNG_FORMAT_GRAY, 1, most);
}

void WritePng(const std::string& path, const Image& image) {
  std::vector<const uint8_t*> rows = Rows(image);
  AtomicFile out(path);
  std::string error_text;
  if (!EncodePng(out.stream(), image, rows.data(), &error_text)) {
    throw InputError("cannot write " + path + ": " + error_text);
  }
  out.Commit();
}

std::vector<uint8_t> PngBytes(const Image& image) {
  std::vector<const uint8_t*> rows = Rows(image);
  char* data = nullptr;
  size_t size = 0;
  FILE* stream = open_memstream(&data, &size);
  if (stream == nullptr) throw std::runtime_error("cannot encode a PNG: " + Errno());
  std::string error_text;
  const bool encoded = EncodePng(stream, image, rows.data(), &error_text);
  const bool closed = fclose(stream) == 0;
  std::vector<uint8_t> bytes(data, data + (encoded && closed ? size : 0));
  free(data);
  if (!encoded || !closed) throw std::runtime_error("cannot encode a PNG: " + error_text);
  return bytes;
}

void CheckOutputPath(const std::string& path) {
  const size_t slash = path.find_last_of('/');
  const std::string dir = slash == std::string::npos ? "." : path.substr(0, slash + 1);
  struct stat info;
  if (path.empty() || path.back() == '/' ||
      (stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode))) {
    throw InputError("output " + path + " is not a file name");
  }
  if (stat(dir.c_str(), &info) != 0 || !S_ISDIR(info.st_mode)) {
    throw InputError("cannot write " + path + ": no directory " + dir);
  }
  if (access(dir.c_str(), W_OK) != 0) throw InputError("cannot write " + path + ": " + Errno());
}

void MakeDirectories(const std::string& path) {
  for (size_t at = 1; at <= path.size(); ++at) {
    if (at != path.size() && path[at] != '/') continue;
    const std::string prefix = path.substr(0, at);
    if (mkdir(prefix.c_str(), 0777) != 0 && errno != EEXIST) {
      throw InputError("cannot create directory " + prefix + ": " + Errno());
    }
  }
  struct stat info;
  if (stat(path.c_str(), &info) != 0 || !S_ISDIR(info.st_mode)) {
    throw InputError("cannot use " + path + " as an output directory");
  }
}

}  // namespace dofra_tool
