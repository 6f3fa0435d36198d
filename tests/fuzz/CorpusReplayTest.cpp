// Replays every file of tests/fuzz/corpus/<target>/ through that target's entry function. A
// crash ends the test program; an exception the target does not allow fails the test.
#include "fuzz/FuzzTarget.h"

#include <QDir>
#include <QFile>
#include <gtest/gtest.h>

#include <exception>

namespace velmar::test {
namespace {

void Replay(const char* target, void (*run)(const std::uint8_t* data, std::size_t size)) {
  const QDir folder(QStringLiteral(VELMAR_FUZZ_CORPUS "/") + QString::fromLatin1(target));
  const QStringList names = folder.entryList(QDir::Files, QDir::Name);
  ASSERT_FALSE(names.isEmpty()) << "no inputs in " << folder.path().toStdString();
  for (const QString& name : names) {
    QFile file(folder.filePath(name));
    ASSERT_TRUE(file.open(QIODevice::ReadOnly)) << name.toStdString();
    const QByteArray input = file.readAll();
    try {
      run(reinterpret_cast<const std::uint8_t*>(input.constData()), static_cast<std::size_t>(input.size()));
    } catch (const std::exception& e) {
      ADD_FAILURE() << target << "/" << name.toStdString() << ": " << e.what();
    }
  }
}

TEST(CorpusReplay, ListingLine) { Replay("listing_line", fuzz::ListingLine); }
TEST(CorpusReplay, DirectoryListing) { Replay("directory_listing", fuzz::DirectoryListing); }
TEST(CorpusReplay, Reply) { Replay("reply", fuzz::Reply); }
TEST(CorpusReplay, PassivePort) { Replay("passive_port", fuzz::PassivePort); }
TEST(CorpusReplay, Script) { Replay("script", fuzz::Script); }

}  // namespace
}  // namespace velmar::test
