#include "os/posix/paths/folder_names.h"

#include <dirent.h>
#include <time.h>

#include <mutex>
#include <unordered_map>
#include <utility>

#include "base/text_encoding.h"
#include "base/wide_string.h"
#include "os/posix/paths/beneath_path.h"
#include "os/posix/paths/case_memo.h"

namespace tw::posix {
namespace {

// More listings than this are dropped all at once; a migration works in a few folders at a time.
constexpr std::size_t kMaxListings = 64;

std::wstring Folded(std::string_view name) {
  std::wstring folded = Utf8ToWide(name);
  for (wchar_t& c : folded) c = ToUpperWindows(c);
  return folded;
}

bool SameTime(const struct timespec& a, const struct timespec& b) {
  return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

bool NotAfter(const struct timespec& a, const struct timespec& b) {
  return a.tv_sec < b.tv_sec || (a.tv_sec == b.tv_sec && a.tv_nsec <= b.tv_nsec);
}

struct Stamp {
  dev_t device = 0;
  ino_t inode = 0;
  struct timespec modified {};
  struct timespec changed {};

  static Stamp Of(const struct stat& info) {
    return Stamp{info.st_dev, info.st_ino, info.st_mtim, info.st_ctim};
  }
  bool operator==(const Stamp& other) const {
    return device == other.device && inode == other.inode && SameTime(modified, other.modified) &&
           SameTime(changed, other.changed);
  }
};

struct Listing {
  Stamp stamp;
  std::unordered_map<std::wstring, std::string> byFoldedName;  // the first entry of each
  // Set when this process changed the folder after `stamp` was taken: the folder's next
  // stamp is taken as its own if the folder was last changed no later than `ownChangeEnd`.
  bool ownChange = false;
  struct timespec ownChangeEnd {};

  bool Describes(const Stamp& now) {
    if (stamp == now) return true;
    if (!ownChange || now.device != stamp.device || now.inode != stamp.inode ||
        !NotAfter(now.changed, ownChangeEnd))
      return false;
    stamp = now;
    ownChange = false;
    return true;
  }
};

bool ReadListing(const std::string& folder, Listing& listing) {
  DIR* stream = OpenFolderListingBeneath(folder);
  if (stream == nullptr) return false;
  while (const struct dirent* item = ::readdir(stream)) {
    const std::string_view entry(item->d_name);
    if (entry == "." || entry == "..") continue;
    listing.byFoldedName.emplace(Folded(entry), std::string(entry));
  }
  ::closedir(stream);
  return true;
}

std::pair<std::string, std::string> SplitPath(const std::string& native) {
  const std::string::size_type slash = native.rfind('/');
  if (slash == std::string::npos) return {std::string(), native};
  return {slash == 0 ? std::string("/") : native.substr(0, slash), native.substr(slash + 1)};
}

class Listings {
 public:
  std::string Find(const std::string& folder, const struct stat& folderInfo,
                   std::string_view name) {
    // A folder reached through a symbolic link: the link's times say nothing about the folder.
    if (!S_ISDIR(folderInfo.st_mode)) return ReadNameNoCase(folder, name);
    const Stamp now = Stamp::Of(folderInfo);
    const std::wstring wanted = Folded(name);
    const std::lock_guard<std::mutex> guard(mutex_);
    auto found = listings_.find(folder);
    if (found == listings_.end() || !found->second.Describes(now)) {
      Listing listing;
      listing.stamp = now;
      if (!ReadListing(folder, listing)) {
        if (found != listings_.end()) listings_.erase(found);
        return std::string();
      }
      if (listings_.size() >= kMaxListings) listings_.clear();
      found = listings_.insert_or_assign(folder, std::move(listing)).first;
    }
    const auto entry = found->second.byFoldedName.find(wanted);
    return entry == found->second.byFoldedName.end() ? std::string() : entry->second;
  }

  void Created(const std::string& native) {
    const auto [folder, name] = SplitPath(native);
    const std::lock_guard<std::mutex> guard(mutex_);
    const auto found = listings_.find(folder);
    if (found == listings_.end()) return;
    if (name.empty()) {
      listings_.erase(found);
      return;
    }
    // The creation has returned, so the folder's change time is no later than this clock.
    found->second.ownChange = true;
    ::clock_gettime(CLOCK_REALTIME, &found->second.ownChangeEnd);
    found->second.byFoldedName.emplace(Folded(name), name);
  }

  void Removed(const std::string& native) {
    const std::string folder = SplitPath(native).first;
    const std::lock_guard<std::mutex> guard(mutex_);
    // Another entry may differ from the removed one only in case: the folder is read again.
    listings_.erase(folder);
  }

 private:
  std::mutex mutex_;
  std::unordered_map<std::string, Listing> listings_;
};

Listings& ProcessListings() {
  static Listings* listings = new Listings;  // lives until the process ends
  return *listings;
}

}  // namespace

std::string FindNameNoCase(const std::string& folder, const struct stat& folderInfo,
                           std::string_view name) {
  return ProcessListings().Find(folder, folderInfo, name);
}

std::string ReadNameNoCase(const std::string& folder, std::string_view name) {
  DIR* stream = OpenFolderListingBeneath(folder);
  if (stream == nullptr) return std::string();
  const std::wstring wanted = Utf8ToWide(name);
  std::string found;
  while (const struct dirent* item = ::readdir(stream)) {
    const std::string_view entry(item->d_name);
    if (entry == "." || entry == "..") continue;
    if (EqualsNoCase(Utf8ToWide(entry), wanted)) {
      found.assign(entry);
      break;
    }
  }
  ::closedir(stream);
  return found;
}

void NoteNameCreated(const std::string& native) { ProcessListings().Created(native); }

void NoteNameRemoved(const std::string& native) {
  ProcessListings().Removed(native);
  ForgetCaseResolutions();  // what a name was resolved to may be gone
  ForgetBeneathFolders();   // a folder kept open may be the one removed
}

}  // namespace tw::posix
