#include "image/write_picture.h"

#include <cctype>
#include <cstdio>

#include "common/diagnostics.h"
#include "image/exceptions.h"
#include "image/jpeg_io.h"
#include "image/png_io.h"

namespace NImageIO {

PictureFormat pictureFormatOf(const std::string& filename) {
  const size_t slash = filename.find_last_of('/');
  const size_t dot = filename.find_last_of('.');
  if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return PictureFormat::Unknown;
  std::string extension = filename.substr(dot + 1);
  for (char& c : extension) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  if (extension == "png") return PictureFormat::Png;
  if (extension == "jpg" || extension == "jpeg") return PictureFormat::Jpeg;
  return PictureFormat::Unknown;
}

void writePicture(const CTensor<float>& image, const std::string& filename) {
  switch (pictureFormatOf(filename)) {
    case PictureFormat::Png:
      writePNG(image, filename.c_str());
      return;
    case PictureFormat::Jpeg:
      writeJPEG(image, filename.c_str());
      return;
    case PictureFormat::Unknown:
      break;
  }
  vemo::reportf(stderr, "Cannot write %s: name a picture .png, .jpg or .jpeg\n", filename.c_str());
  throw EInvalidFileFormat();
}

}  // namespace NImageIO
