#include <qovpub/qov_version.h>

#include <string_view>

static_assert(std::string_view(QOVPUB_VERSION_STRING) == QOV_PROJECT_VERSION,
              "qov_version.h and CMakeLists.txt name the same version");
// NOLINTBEGIN(misc-redundant-expression): the two sides come from two files
static_assert(QOVPUB_VERSION_MAJOR == QOV_PROJECT_VERSION_MAJOR &&
                  QOVPUB_VERSION_MINOR == QOV_PROJECT_VERSION_MINOR &&
                  QOVPUB_VERSION_PATCH == QOV_PROJECT_VERSION_PATCH,
              "its numbers are those of its text");
// NOLINTEND(misc-redundant-expression)

const char* QOV_Version() {
  return QOVPUB_VERSION_STRING;
}
