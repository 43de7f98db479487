// Files over a line that loses, doubles and reorders, in simulated time.

#include <cmath>

#include "harness.h"
#include "relay.h"

TEST_F(Receive, DeliversOverALossyLineAtTheRateOfTheArithmetic) {
  constexpr unsigned kFiles = 200;
  std::istringstream courses(  // loss burst doubled late headers passes parts udata pause chance
      "0.01    0 0    0  1 2 200  1400    0 0.9801\n"
      "0.01    0 0.1  9  1 3 100  1400    0 0.9999\n"
      "0.01    0 0    0  2 5 100  1400    0 1.0000\n"
      "0.05    0 0    0  1 2 100  1400    0 0.7766\n"
      "0.05    0 0.1  9  1 3 200  1400    0 0.9752\n"
      "0.05    0 0    0  2 5 100  1400    0 1.0000\n"
      "0.20    0 0    0  1 2  10  1400    0 0.6382\n"
      "0.20    0 0.1  9  1 3  50  1400    0 0.6639\n"
      "0.20    0 0    0  2 5 100  1400    0 0.9685\n"
      "0.20    0 0    0  1 1   1  1400    0 0.6400\n"
      "0.005   0 0    0  1 2  20  1400    0 0.9995\n"
      "0.005   0 0    0  1 2  20 61440    0 0.4799\n"
      "0     100 0    0  1 2  20  1400    0 0.8043\n"
      "0     100 0    0  1 2  20  1400  100 0.9046\n"
      "0     100 0.1  9  1 2  20  1400 2000 0.9444\n");
  std::size_t seed = 0;
  for (std::string course; std::getline(courses, course);) {
    Line line;
    double burst = 0, chance = 0;
    std::size_t headers = 0, passes = 0, parts = 0, udata = 0, pause = 0;
    std::istringstream(course) >> line.loss >> burst >> line.doubled >> line.late >> headers >>
        passes >> parts >> udata >> pause >> chance;
    if (burst > 0) line.to_good = 1 / burst, line.to_bad = line.to_good / 4;  // a fifth of the time
    start();
    Relay relay(line, static_cast<unsigned>(++seed));
    const auto file_no = [&](std::uint64_t id) {
      return File{id, std::to_string(id), random_bytes(parts * (udata - 20), id), "", udata};
    };
    File journal{~1ULL, "j", "", "", 1400, 1};
    const std::uint64_t first = seed * 1000;
    for (std::uint64_t id = first; id < first + kFiles; ++id) {
      if (burst > 0) (void)relay.pass(2000);
      const File file = file_no(id);
      for (std::size_t pass = 0; pass < passes; ++pass, (void)relay.pass(pause))
        feed(relay.carry(file.pass(headers)));
      pass_time(61);
      journal.bytes += file.journal_line();
    }
    feed(journal.pass());
    std::ostringstream report;
    print_report(*ledger, {true, false, true}, report);
    unsigned arrived = 0;
    for (std::uint64_t id = first; id < first + kFiles; ++id) {
      const File file = file_no(id);
      const bool here = fs::exists(into / file.name);
      EXPECT_EQ(here, report.str().find("{\"path\":\"" + file.name + "\"") == std::string::npos);
      EXPECT_TRUE(!here || file.bytes == contents(into / file.name)) << id;
      arrived += here ? 1 : 0;
    }
    EXPECT_NEAR(kFiles * chance, arrived, 4 * std::sqrt(kFiles * chance * (1 - chance)) + 0.5)
        << course;
    stop(), fs::remove_all(into);
  }
}
