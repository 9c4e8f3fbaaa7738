#include <downloader/Version.h>

const char* dl_version(void) {
  return DOWNLOADER_VERSION_STRING;
}
