// Uses the installed library through its public headers only: builds a session and reads
// what a fresh one must hold. Exit status 0 when everything matches, 1 otherwise.
#include "session/FTPSessionClass.h"

#include <QCoreApplication>
#include <QString>

#include <cstdio>
#include <memory>

#ifndef VELMAR_EXPECTED_VERSION
#error "VELMAR_EXPECTED_VERSION must name the installed package version"
#endif

int main(int argc, char** argv) {
  QCoreApplication app(argc, argv);
  int failures = 0;
  auto expect = [&failures](bool ok, const char* what, const QString& got) {
    if (!ok) {
      std::fprintf(stderr, "consumer: %s, got \"%s\"\n", what, qPrintable(got));
      ++failures;
    }
  };

  auto session = std::make_shared<velmar::FTPSessionClass>();
  const QString version = session->GetVelmarVersion();
  expect(version == QStringLiteral(VELMAR_EXPECTED_VERSION),
         "GetVelmarVersion() should be " VELMAR_EXPECTED_VERSION, version);
  expect(session->CommandPort == 21, "CommandPort should default to 21",
         QString::number(session->CommandPort));

  auto named = std::make_shared<velmar::FTPSessionClass>(QStringLiteral("consumer-42"));
  expect(named->ID == QStringLiteral("consumer-42"), "Constructor(ID) should keep the ID", named->ID);

  if (failures == 0)
    std::printf("consumer: Velmar %s ok\n", qPrintable(version));
  return failures == 0 ? 0 : 1;
}
