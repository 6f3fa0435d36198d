// main() of the micro-benchmarks: Google Benchmark inside a QCoreApplication, which the
// library's sockets, timers and text encodings need.
#include <QCoreApplication>

#include <benchmark/benchmark.h>

int main(int argc, char** argv) {
  QCoreApplication app(argc, argv);
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
