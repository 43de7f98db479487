#include "send/seal.h"

#include <sys/stat.h>

#include <ostream>
#include <utility>
#include <vector>

#include "seal/digest.h"
#include "seal/keys.h"
#include "send/code_page.h"
#include "send/repair_content.h"
#include "send/transfer.h"
#include "send/transfer_id.h"
#include "state/console.h"
#include "state/metrics.h"
#include "state/settings.h"
#include "wire/wire_format.h"

namespace {

Percent repair_percent = 0;  // 0: no repair parts
std::unique_ptr<const SigningKey> signing_key;

/// Makes the digest of what is read between the first rewind() and the second one.
class DigestedContent final : public Content {
 public:
  explicit DigestedContent(Content& content) : content_(content) {}

  void rewind() override {
    ++passes_;
    content_.rewind();
  }
  std::uint64_t read(unsigned char* to, std::uint64_t size) override {
    const std::uint64_t got = content_.read(to, size);
    if (passes_ == 1) digest_.add(to, got);
    return got;
  }
  int end_short() const override { return content_.end_short(); }
  ContentHash digest() { return digest_.finish(); }

 private:
  Content& content_;
  ContentDigest digest_;
  int passes_ = 0;
};

/// Returns the layout for a file of `parts` parts; nothing if there are no repair parts.
std::optional<CodeLayout> layout_for(std::uint64_t parts, std::uint32_t part) {
  if (repair_percent == 0 || parts == 0) return std::nullopt;
  return CodeLayout::of(parts, part, choose_code(parts, repair_percent, part));
}

std::uint32_t permissions(const SourceFile& file) {
  struct stat status {};
  (void)fstat(file.fd(), &status);  // can't fail on a file that was just read
  return status.st_mode & 0777U;
}

SealRecord describe(const SealedFile& sealed, const ContentHash& hash,
                    const std::optional<CodeLayout>& layout) {
  SealRecord record;
  record.of = sealed.info.transfer_id;
  record.kind = sealed.info.file_kind;
  record.size = static_cast<std::uint64_t>(sealed.info.file_size);
  record.udata = static_cast<std::uint32_t>(settings.udata_size);
  record.sent = sealed.info.send_time;
  record.crc = static_cast<std::uint32_t>(sealed.info.path_crc);
  record.b2 = hash;
  record.mtime_s = sealed.file.stamp().modified_s;
  record.mtime_ns = static_cast<std::uint32_t>(sealed.file.stamp().modified_ns);
  record.mode = permissions(sealed.file);
  const std::string& path = sealed.file.path();
  record.path = TrueName{path.substr(path.rfind('/') + 1), sealed.pth};
  if (layout) record.code = layout->code();
  return record;
}

/// Returns the header packet of the seal `info`, with `record` in it.
std::vector<unsigned char> seal_packet(const file_info& info, const SealedFile& sealed,
                                       const SealRecord& record) {
  bool cut = false;  // not used: a name that was cut was reported when the file went out
  std::string folder = fname_to_send(sealed.pth, cut);
  if (folder.empty()) folder.assign(1, '/');
  const std::string text = sealed_text(record, signing_key.get(), record_room(folder.size()));
  return build_header_packet(info, {seal_name(record.of), folder, text});
}

class FileSeal final : public Seal {
 public:
  explicit FileSeal(Content& file) : file_(file), digested_(file) {}

  Content& content() override { return digested_; }

  int send(const SealedFile& sealed) override {
    const auto udata = static_cast<std::uint32_t>(settings.udata_size);
    const std::uint32_t part = part_size(udata);
    const auto size = static_cast<std::uint64_t>(sealed.info.file_size);
    const std::optional<CodeLayout> layout = layout_for(part_count(size, udata), part);
    const SealRecord record = describe(sealed, digested_.digest(), layout);

    file_info info = sealed.info;
    info.transfer_id = next_transfer_id();
    info.file_kind = kKindSeal;
    info.file_size = layout ? static_cast<std::int64_t>(layout->repair_parts() * part) : 0;
    say(1) << "\nSeal of  " << shown(sealed.file.path()) << "\n" << std::flush;
    if (layout) metrics.parts += layout->repair_parts();
    if (!layout)
      return Transfer(seal_packet(info, sealed, record), file_, sealed.to, info).send_pass();
    RepairContent repair(file_, size, *layout);
    return Transfer(seal_packet(info, sealed, record), repair, sealed.to, info).send_pass();
  }

 private:
  Content& file_;
  DigestedContent digested_;
};

}  // namespace

std::string prepare_seals() {
  if (!settings.seal) return "";
  if (!settings.repair.empty()) {
    const std::optional<Percent> percent = parse_percent(settings.repair);
    if (!percent) {
      return "--repair=" + settings.repair +
             ": not a percentage; 1 to 300, with up to six decimals behind a point";
    }
    repair_percent = *percent;
  }
  std::string why;
  if (!settings.sign.empty()) signing_key = SigningKey::read(settings.sign, why);
  return why.empty() ? "" : "--sign=" + why;
}

std::uint64_t repair_parts(std::uint64_t size) {
  const auto udata = static_cast<std::uint32_t>(settings.udata_size);
  const auto layout = layout_for(part_count(size, udata), part_size(udata));
  return layout ? layout->repair_parts() : 0;
}

std::unique_ptr<Seal> begin_seal(Content& content) {
  if (!settings.seal) return nullptr;
  return std::make_unique<FileSeal>(content);
}
