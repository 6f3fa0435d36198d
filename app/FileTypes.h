#pragma once
// The program's one file type: any local file or folder.
#include "app/FileType.h"

#include <memory>

namespace velmar {

class FileTypes {
public:
  // "any": no extensions, type and creator "????". Made by Setup() before the application
  // object exists; nullptr until then.
  static std::shared_ptr<FileType> pAny;

  static void Setup();
  // The type registered under this name (ignoring case), or nullptr.
  static std::shared_ptr<FileType> Find(const QString& name);
};

}  // namespace velmar
