#include <downloader/Storage/IDataStore.h>

namespace downloader {
namespace storage {

IDataStore::~IDataStore() = default;

}  // namespace storage
}  // namespace downloader
