// Trash journals and what the report says; all through a real ledger.
#include "receiver/report.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>

#include "receiver/journal.h"
#include "receiver/ledger.h"

struct Report : testing::Test {
  Report() { setenv("TZ", "UTC-3", 1); }
  void TearDown() override { std::filesystem::remove_all(dir); }
  void save(std::uint64_t id, Outcome outcome, std::uint64_t parts, const std::string& missing,
            const std::vector<std::uint64_t>& received, const std::string& why = "") {
    ledger->save({id,       0x1000000AA, 0xCC,
                  1,        1400,        parts * 1380 - 1,
                  name,     "/in",       "a:9",
                  1e9,      1.5,         parts,
                  4,        5,           0,
                  received, {0, 40},     missing,
                  outcome,  why,         "/d/in/" + name});
  }
  /// The number of files not whole, then what is printed.
  std::string print(bool missing, bool json = false) {
    std::ostringstream out;
    const std::uint64_t count = print_report(*ledger, {missing, false, json}, out);
    return std::to_string(count) + "\n" + out.str();
  }
  std::string error, dir = std::filesystem::temp_directory_path() / "report_XXXXXX";
  std::string name{"\xD0\xBF\0\x1B\xC2\x9B\xC0\x9B\\", 9};
  std::unique_ptr<Ledger> ledger = Ledger::open(std::string(mkdtemp(dir.data())) + "/l", error);
};

TEST_F(Report, ListsTransfersWithWhatEachPassLost) {
  save(UINT64_MAX, Outcome::kReceiving, 100, "51-100", {70});
  EXPECT_NE(std::string::npos, print(false).find("pass 2: 0+40 of 100 so far\n"));
  EXPECT_EQ(R"(1
{"id":"FFFFFFFFFFFFFFFF","outcome":"receiving","why":"","name":"\u043f\u0000\u001b\u009b\ufffd\ufffd\\","folder":"/in","size":137999,"file_kind":1,"send_time":4294967466,"path_crc":"000000CC","source":"a:9","first_packet":1000000000.0,"last_packet":1.5,"udata_size":1400,"parts":100,"received":4,"repeated":5,"differing":0,"received_per_pass":[70],"repeated_per_pass":[0,40],"missing_bytes":[[69000,137998]],"delivered_to":"/d/in/\u043f\u0000\u001b\u009b\ufffd\ufffd\\"}
)",
            print(false, true));
  save(1, Outcome::kDelivered, 3000, "", {2999, 1});
  save(UINT64_MAX, Outcome::kIncomplete, 100, "4-5,100-101,200", {90, 7}, "nothing came for 60 s");
  EXPECT_EQ(R"(1
first packet         outcome             bytes     lost  path
2001-09-09 04:46:40  incomplete         137999   10.0 %  in/п\x00\x1B\xC2\x9B\xC0\x9B\\  (trash journal)
    pass 1: 90+0 of 100, 10.0 % lost; pass 2: 7+40 of 100, 53.0 % lost
    missing bytes 4140-6899, 136620-137998
    nothing came for 60 s
2001-09-09 04:46:40  delivered         4139999   <0.1 %  in/п\x00\x1B\xC2\x9B\xC0\x9B\\  (trash journal)
    pass 1: 2999+0 of 3000, <0.1 % lost; pass 2: 1+40 of 3000 when complete
2 transfers: 1 delivered, 1 incomplete, 0 refused, 0 receiving; 4139999 bytes delivered; first passes lost 11 of 3100 parts, 0.4 %
)",
            print(false));
}

TEST_F(Report, NamesTheFilesOfTheJournalsThatAreNotHere) {
  EXPECT_EQ("0\n{\"journal_entries\":0}\n", print(true, true));
  save(0x500000001, Outcome::kDelivered, 1, "", {1});
  save(0x600000001, Outcome::kIncomplete, 1, "1", {});
  save(0x500000002, Outcome::kIncomplete, 3, "1,3", {1});
  save(0x500000003, Outcome::kRefused, 3, "", {}, "too large");
  for (const std::string text :
       {"no entry before it\n00000000AA000000040000000000CC again\n00000000AA00000005000027F6BDAD "
        "12\n34\n00000000AA00 torn, behind a whole path\n00000000AA000000030000000000CC "
        "two\n\n00000000AA000000030000000000cc lines",
        "00000000AA00000005000027F6BDAD 12\n34\n00000000AA000000020000000000CC c\n"
        "00000000AA000000010000000000CD crc\n00000000AA000000010000000000CC again\n"
        "00000000AB000000010000000000CC again"}) {
    std::istringstream in(text);
    EXPECT_EQ("", ledger->add_journal(read_journal(in).entries));
  }
  EXPECT_EQ(
      "5\nlost whole: 12\\x0A34\nrefused: two\\x0A\\x0A00000000AA000000030000000000cc lines (too "
      "large)\n"
      "incomplete: c (missing bytes 0-1379, 2760-4138)\nlost whole: crc\nlost whole: again\n"
      "7 files in the journals: 1 delivered, 1 incomplete, 1 refused, 0 receiving, 3 lost whole, 1 "
      "failed but delivered when sent again\n"
      "Files sent after the last journal that came are not among them.\n",
      print(true));
}
