// Throughput of the listing parser: ParseDirListLine one line at a time, and
// ParseDirectoryList over a whole listing into the directory tree, on 100,000 lines of the
// forms servers send (Unix files, folders and links, Windows lines, lines of other shapes).
// Run by bench/run.sh; alone: velmar-parse-bench [--benchmark_filter=...].
#include "data/FTPDataSocket.h"
#include "listing/FTPDirectoryClass.h"
#include "listing/FTPParsedDirListLineClass.h"
#include "session/FTPSessionClass.h"

#include <QStringList>

#include <benchmark/benchmark.h>

namespace {

constexpr int kLines = 100000;

// Deterministic mix, weighted as listings come: mostly Unix lines with names of one to three
// words, some folders and links, a share of Windows lines and of other shapes.
QStringList MixedListing() {
  static const char* const months[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                       "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  QStringList lines;
  lines.reserve(kLines);
  for (int i = 0; i < kLines; ++i) {
    const QString month = QString::fromLatin1(months[i % 12]);
    const QString day = QString::number(1 + i % 28);
    const QString size = QString::number((i * 7919) % 10000000);
    switch (i % 10) {
      case 0:
        lines << QStringLiteral("drwxr-xr-x    2 owner    group        4096 %1 %2  2023 folder %3").arg(month, day).arg(i);
        break;
      case 1:
        lines << QStringLiteral("lrwxrwxrwx    1 owner    group          11 %1 %2 10:%3 link%4 -> target/%4")
                     .arg(month, day)
                     .arg(i % 60, 2, 10, QLatin1Char('0'))
                     .arg(i);
        break;
      case 2:
        lines << QStringLiteral("04-27-07  03:15PM       %1 windows file %2.txt").arg(size).arg(i);
        break;
      case 3:
        lines << QStringLiteral("04-27-07  03:15PM       <DIR>          Windows Folder %1").arg(i);
        break;
      case 4:
        lines << QStringLiteral("d [RWCEAFMS] owner    512 %1 %2 10:30 shared%3").arg(month, day).arg(i);
        break;
      default:
        lines << QStringLiteral("-rw-r--r--    1 owner    group    %1 %2 %3 %4:%5 report %6 final.txt")
                     .arg(size, month, day)
                     .arg(i % 24, 2, 10, QLatin1Char('0'))
                     .arg(i % 60, 2, 10, QLatin1Char('0'))
                     .arg(i);
        break;
    }
  }
  return lines;
}

const QStringList& Listing() {
  static const QStringList lines = MixedListing();
  return lines;
}

void BM_ParseDirListLine(benchmark::State& state) {
  auto session = std::make_shared<velmar::FTPSessionClass>();
  const QStringList& lines = Listing();
  qint64 names = 0;
  for (auto _ : state) {
    for (const QString& line : lines) {
      const auto record = session->ParseDirListLine(line);
      names += record->Name.size();
    }
  }
  benchmark::DoNotOptimize(names);
  state.SetItemsProcessed(state.iterations() * lines.size());
  state.counters["lines_per_s"] =
      benchmark::Counter(static_cast<double>(state.iterations() * lines.size()), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_ParseDirListLine)->Unit(benchmark::kMillisecond);

// The whole listing as the data socket hands it over at the connection's close: one text with
// CR LF line ends, parsed into a fresh tree each round.
void BM_ParseDirectoryList(benchmark::State& state) {
  auto session = std::make_shared<velmar::FTPSessionClass>();
  velmar::FTPDataSocket data(session.get());
  const QString text = Listing().join(QStringLiteral("\r\n")) + QStringLiteral("\r\n");
  for (auto _ : state) {
    state.PauseTiming();
    session->DirList.clear();
    session->DirList.append(std::make_shared<velmar::FTPDirectoryClass>(QStringLiteral("/top"), QString()));
    session->CurrentDirectoryIndex = 0;
    session->CurrentWorkingDirectory = QStringLiteral("/top");
    state.ResumeTiming();
    data.ParseDirectoryList(text);
  }
  benchmark::DoNotOptimize(session->DirList.size());
  state.SetItemsProcessed(state.iterations() * Listing().size());
  state.counters["lines_per_s"] = benchmark::Counter(static_cast<double>(state.iterations() * Listing().size()),
                                                     benchmark::Counter::kIsRate);
}
BENCHMARK(BM_ParseDirectoryList)->Unit(benchmark::kMillisecond);

}  // namespace
