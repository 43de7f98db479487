// Trash journals and what the report says; all through a real ledger.
#include "receiver/tell/report.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>

#include "receiver/base/passes.h"
#include "receiver/ledger/journal.h"
#include "receiver/ledger/ledger.h"
#include "receiver/tell/summary.h"

struct Report : testing::Test {
  Report() { setenv("TZ", "UTC-3", 1); }
  void TearDown() override { std::filesystem::remove_all(dir); }
  void save(std::uint64_t id, Outcome outcome, std::uint64_t parts, const std::string& missing,
            const std::vector<std::uint64_t>& received, const std::string& why = "") {
    TransferRecord r;
    r.key.id = id, r.send_time = 0x1000000AA, r.path_crc = crc, r.file_kind = 1;
    r.udata_size = 1400, r.size = parts * 1380 - 1, r.parts = parts, r.missing = missing;
    r.name = name, r.folder = "/in", r.source = "a:9", r.first_packet = 1e9, r.last_packet = 1.5;
    r.received = 4, r.repeated = 5, r.received_per_pass = received, r.repeated_per_pass = {0, 40};
    r.outcome = outcome, r.why = why;
    r.delivered_to = parts == 3000 ? "/d/in/y" : "/d/in/" + name;
    r.asked_for = "in/x", r.lies_at = "in/y", r.collided = parts == 3000;
    ledger->save(r);
  }
  /// The number of files not whole, then what is printed.
  std::string print(bool missing, bool json = false) {
    std::ostringstream out;
    const std::uint64_t count = print_report(*ledger, {missing, false, json}, out);
    return std::to_string(count) + "\n" + out.str();
  }
  std::uint32_t crc = 0xCC;  ///< of the paths of what is saved
  std::string error, dir = std::filesystem::temp_directory_path() / "report_XXXXXX";
  std::string name{"\xD0\xBF\0\x1B\xC2\x9B\xC0\x9B\\", 9};
  std::unique_ptr<Ledger> ledger = Ledger::open(std::string(mkdtemp(dir.data())) + "/l", error);
};

TEST_F(Report, ListsTransfersWithWhatEachPassLost) {
  save(UINT64_MAX, Outcome::kReceiving, 100, "51-100", {70});
  EXPECT_NE(std::string::npos, print(false).find("pass 2: 0+40 of 100 so far\n"));
  EXPECT_EQ(R"(1
{"id":"FFFFFFFFFFFFFFFF","outcome":"receiving","why":"","name":"\u043f\u0000\u001b\u009b\ufffd\ufffd\\","folder":"/in","size":137999,"file_kind":1,"send_time":4294967466,"path_crc":"000000CC","source":"a:9","first_packet":1000000000.0,"last_packet":1.5,"udata_size":1400,"parts":100,"received":4,"repeated":5,"differing":0,"received_per_pass":[70],"repeated_per_pass":[0,40],"missing_bytes":[[69000,137998]],"delivered_to":"/d/in/\u043f\u0000\u001b\u009b\ufffd\ufffd\\","asked_for":"in/x","lies_at":"in/y","collided":false,"repaired":0,"proof":""}
)",
            print(false, true));
  save(UINT64_MAX, Outcome::kIncomplete, 100, "4-5,100-101,200", {90, 7}, "nothing came for 60 s");
  save(1, Outcome::kDelivered, 3000, "", {2999, 1});
  EXPECT_EQ(R"(1
first packet         outcome             bytes     lost  path
2001-09-09 04:46:40  incomplete         137999   10.0 %  in/п\x00\x1B\xC2\x9B\xC0\x9B\\  (trash journal)
    pass 1: 90+0 of 100, 10.0 % lost; pass 2: 7+40 of 100, 53.0 % lost
    missing bytes 4140-6899, 136620-137998
    nothing came for 60 s
2001-09-09 04:46:40  delivered         4139999   <0.1 %  in/п\x00\x1B\xC2\x9B\xC0\x9B\\  (trash journal)
    pass 1: 2999+0 of 3000, <0.1 % lost; pass 2: 1+40 of 3000 when complete
    its name was taken by a file of another path
    kept as /d/in/y
2 transfers: 1 delivered, 1 incomplete, 0 refused, 0 receiving; 4139999 bytes delivered; 1 name collided; first passes lost 11 of 3100 parts, 0.4 %
)",
            print(false));
}

TEST_F(Report, TellsTimesThatThereAre) {
  EXPECT_EQ("1970-01-01 03:00:00", local_time(0));
  EXPECT_EQ("?", local_time(-1));
  EXPECT_EQ("?", local_time(253402300800));
}

TEST(Passes, AreOverWhenRepairPartsCame) {
  TransferRecord record;
  record.parts = 100;
  record.received_per_pass = {95};
  record.repaired = 5;
  record.outcome = Outcome::kDelivered;
  EXPECT_EQ("pass 1: 95+0 of 100, 5.0 % lost", passes_text(record, passes_of(record)));
}

TEST_F(Report, NamesTheFilesOfTheJournalsThatAreNotHere) {
  EXPECT_EQ("0\n{\"journal_entries\":0}\n", print(true, true));
  crc = 0x6C5EA403;
  save(0x500000001, Outcome::kDelivered, 1, "", {1});
  save(0x600000001, Outcome::kIncomplete, 1, "1", {});
  crc = 0xF9462090;
  save(0x500000002, Outcome::kIncomplete, 3, "1,3", {1});
  crc = 0xF216A9C3;
  save(0x500000003, Outcome::kRefused, 3, "", {}, "too large");
  for (const std::string text :
       {"00000000AA0000000400006C5EA403 again\n00000000AA00000005000027F6BDAD "
        "12\n34\n00000000AA000000030000F216A9C3 two\n\nlines\n",
        "00000000AA00000005000027F6BDAD 12\n34\n00000000AA000000020000F9462090 c\n"
        "00000000AA000000010000839D7802 crc\n00000000AA0000000100006C5EA403 again\n"
        "00000000AB0000000100006C5EA403 again\n"}) {
    std::istringstream in(text);
    EXPECT_EQ("", ledger->add_journal(read_journal(in).entries));
  }
  EXPECT_EQ("", ledger->add_journal({{0xAA, 6, 0, "forged, kept by an earlier version"}}));
  EXPECT_EQ(
      "5\nnever arrived: 12\\x0A34\nrefused: two\\x0A\\x0Alines (too large)\n"
      "incomplete: c (missing bytes 0-1379, 2760-4138)\nnever arrived: crc\nnever arrived: again\n"
      "7 files in the journals: 1 delivered, 1 incomplete, 1 refused, 0 receiving, 3 never "
      "arrived, 1 "
      "failed but delivered when sent again\n"
      "Files sent after the last journal that came are not among them.\n"
      "1 entry whose CRC is not that of the path left out.\n",
      print(true));
}
