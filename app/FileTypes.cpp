#include "app/FileTypes.h"

#include "platform/FolderItem.h"
#include "platform/Strings.h"

namespace velmar {

std::shared_ptr<FileType> FileTypes::pAny;

namespace {
const QString kAnyCode = QStringLiteral("????");
}

bool FileType::Accepts(const FolderItem& item) const {
  if (MacType != kAnyCode || MacCreator != kAnyCode) return false;
  if (item.Directory() || Extensions.isEmpty()) return true;
  const QString name = item.Name();
  for (const QString& extension : Extensions)
    if (name.endsWith(u'.' + extension, Qt::CaseInsensitive)) return true;
  return false;
}

void FileTypes::Setup() {
  auto type = std::make_shared<FileType>();
  type->Name = QStringLiteral("any");
  type->MacType = kAnyCode;
  type->MacCreator = kAnyCode;
  pAny = type;
}

std::shared_ptr<FileType> FileTypes::Find(const QString& name) {
  if (pAny && Same(pAny->Name, name)) return pAny;
  return nullptr;
}

}  // namespace velmar
