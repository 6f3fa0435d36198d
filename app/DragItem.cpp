#include "app/DragItem.h"

#include "app/FileType.h"
#include "platform/FolderItem.h"

namespace velmar {

DragItem::DragItem(const QList<QUrl>& urls, const std::shared_ptr<FileType>& accepted) {
  for (const QUrl& url : urls) {
    if (!url.isLocalFile()) continue;
    const QString path = url.toLocalFile();
    const std::shared_ptr<velmar::FolderItem> item = GetFolderItem(path);
    if (!item) continue;
    if (accepted && !accepted->Accepts(*item)) continue;
    paths_.append(path);
  }
}

bool DragItem::FolderItemAvailable() const { return current_ < paths_.size(); }

std::shared_ptr<FolderItem> DragItem::FolderItem() const {
  if (!FolderItemAvailable()) return nullptr;
  QString path = paths_.at(current_);
  const std::shared_ptr<velmar::FolderItem> item = GetFolderItem(path);
  // A folder is named with its trailing "/", so the session keeps the whole folder as its
  // local directory.
  if (item && item->Directory() && !path.endsWith(u'/')) return GetFolderItem(path + u'/');
  return item;
}

bool DragItem::NextItem() {
  if (current_ >= paths_.size()) return false;
  ++current_;
  return FolderItemAvailable();
}

}  // namespace velmar
