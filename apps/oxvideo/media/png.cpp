// Encoded in memory, so that writing the file stays the business of terminal/outputfile.
#include <png.h>

#include "media/picture.h"
#include "terminal/exitstatus.h"

namespace OX::cli {

std::string encodePng(const Picture& pPicture) {
  png_image image = {};
  image.version = PNG_IMAGE_VERSION;
  image.width = static_cast<png_uint_32>(pPicture.width);
  image.height = static_cast<png_uint_32>(pPicture.height);
  image.format = PNG_FORMAT_RGB;

  // An upper bound for the size, so that the picture is encoded only once.
  png_alloc_size_t size = PNG_IMAGE_PNG_SIZE_MAX(image);
  std::string file(size, '\0');
  if (!png_image_write_to_memory(&image, file.data(), &size, 0, pPicture.rgb.data(), 0, nullptr))
    throw OXFailure(std::string("can't encode the PNG: ") + image.message);
  file.resize(size);
  return file;
}

}  // namespace OX::cli
