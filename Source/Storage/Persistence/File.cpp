#include "Storage/Persistence/File.h"

#include "Storage/Persistence/DiskFileNameUtil.h"
#include "Utils/log/LogMessage.h"

namespace downloader {
namespace storage {
namespace {

constexpr char kTag[] = "[diskcache][File]";

}  // namespace

File::File(std::string path, platform::FileSystem* fileSystem, int64_t jobId)
    : path_(std::move(path)), fileSystem_(fileSystem), writer_(path_, fileSystem, jobId) {}

bool File::exists() {
  platform::FileInfo info;
  platform::FileStatus status = fileSystem_->GetFileInfo(path_, &info);
  if (!status.ok()) {
    DL_LOGD << kTag << "exists,Could not get file status:" << path_ << "," << status.ToString();
    return false;
  }
  return true;
}

bool File::fillStat(platform::FileInfo* info) {
  if (path_.empty()) {
    DL_LOGW << kTag << "dldebug,null path";
    return false;
  }
  platform::FileStatus status = fileSystem_->GetFileInfo(path_, info);
  if (!status.ok()) {
    DL_LOGD << kTag << "fillStat,fail:" << status.ToString();
  }
  return status.ok();
}

bool File::make_dirs() {
  std::string parent = DiskFileNameUtil::getParentPath(path_);
  if (parent.empty()) return true;
  platform::FileStatus status = fileSystem_->CreateDirs(parent);
  if (!status.ok()) {
    DL_LOGW << kTag << "make_dirs,fail:" << status.ToString();
  }
  return status.ok();
}

bool File::mkdirs() {
  platform::FileStatus status = fileSystem_->CreateDirs(path_);
  if (!status.ok()) {
    DL_LOGW << kTag << "mkdirs,fail:" << status.ToString();
  }
  return status.ok();
}

bool File::renameTo(const std::string& newPath) {
  platform::FileStatus status = fileSystem_->Rename(path_, newPath);
  if (!status.ok()) {
    DL_LOGW << kTag << "renameTo,fail:" << status.ToString();
  }
  return status.ok();
}

bool File::remove() {
  platform::FileInfo info;
  platform::FileStatus status = fileSystem_->GetFileInfo(path_, &info);
  if (status.ok()) status = info.isDirectory ? fileSystem_->RemoveDir(path_) : fileSystem_->RemoveFile(path_);
  if (!status.ok()) {
    DL_LOGW << kTag << "remove,fail:" << status.ToString();
  }
  return status.ok();
}

bool File::scandir(std::vector<std::string>* names) {
  platform::FileStatus status = fileSystem_->ListDir(path_, names);
  if (!status.ok()) {
    DL_LOGW << kTag << "scandir,fail:" << status.ToString();
  }
  return status.ok();
}

}  // namespace storage
}  // namespace downloader
