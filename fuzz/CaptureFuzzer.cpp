// Capture files as igp-lsdb reads them (libpcap behind the tool's own opening, gzip, the frame
// parser, the per-level databases). Input: one octet saying where to cut, then the file, opened by its
// /proc/self/fd path as the tool opens a path. README.md lists the checks.
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "Capture.h"
#include "FuzzSupport.h"
#include "IsisDecoder/Frame.h"
#include "Lsdb.h"

namespace {

namespace ID = Routing::IsisDecoder;
using IgpFuzz::check;

class MemoryFile {
public:
    explicit MemoryFile(std::span<const std::uint8_t> bytes) : fd_(::memfd_create("capture", MFD_CLOEXEC)) {
        check(fd_ >= 0, "memfd_create");
        std::size_t done = 0;
        while (done < bytes.size()) {
            const ssize_t n = ::write(fd_, bytes.data() + done, bytes.size() - done);
            check(n > 0, "writing the memory file");
            done += static_cast<std::size_t>(n);
        }
    }
    ~MemoryFile() { ::close(fd_); }

    std::string path() const { return "/proc/self/fd/" + std::to_string(fd_); }

private:
    int fd_;
};

void checkFrame(std::uint32_t linkType, std::span<const std::uint8_t> frame) {
    const ID::FrameResult r = ID::isisPduOfFrame(linkType, frame);
    if (!r.isIsis()) {
        check(r.pdu.empty(), "a frame that is not IS-IS still names a PDU");
        return;
    }
    check(!r.pdu.empty(), "an IS-IS frame with an empty PDU");
    check(r.pdu.data() >= frame.data() && r.pdu.data() + r.pdu.size() <= frame.data() + frame.size(),
          "the PDU lies outside its frame");
    if (linkType == static_cast<std::uint32_t>(ID::LinkType::ethernet)) {
        // The 802.3 length covers LLC (3 octets) and PDU; padding lies beyond it.
        const auto at = static_cast<std::size_t>(r.pdu.data() - frame.data()) - 5;
        const unsigned length = frame[at] << 8 | frame[at + 1];
        check(length == r.pdu.size() + 3, "the PDU does not end where the 802.3 length says");
    }
}

/// Every frame of the capture at `path`, each checked on its way; empty when it does not open.
std::vector<std::vector<std::uint8_t>> framesOf(const std::string& path, bool& opened) {
    std::string error;
    const auto capture = IgpLsdb::Capture::open(path, error);
    opened = capture != nullptr;
    std::vector<std::vector<std::uint8_t>> frames;
    if (!capture) {
        check(!error.empty(), "a capture that does not open says nothing");
        return frames;
    }
    IgpLsdb::CapturedFrame frame;
    while (capture->next(frame)) {
        check(frame.number == frames.size() + 1, "frames are not numbered from 1 without a gap");
        checkFrame(capture->linkType(), frame.bytes);
        frames.emplace_back(frame.bytes.begin(), frame.bytes.end());
    }
    check(capture->lastFrame() == frames.size(), "the last whole frame is not the last delivered");
    return frames;
}

void checkDatabases(const std::string& path, std::size_t frames) {
    std::string error;
    const auto capture = IgpLsdb::Capture::open(path, error);
    check(capture != nullptr, "a capture that opened once does not open again");
    IgpLsdb::Lsdb lsdb(0);
    lsdb.read(*capture, 1);
    const IgpLsdb::FrameCounters& f = lsdb.frameCounters();
    std::size_t badFrames = 0;
    std::size_t counted = 0;
    for (const auto& [where, n] : lsdb.malformedCounts()) {
        badFrames += where.first == 0 ? n : 0;
        counted += n;
    }
    check(f.frames == frames, "the databases were built from another number of frames");
    check(f.lsps + f.otherIsis + f.notIsis + badFrames == f.frames, "a frame counted twice or not at all");
    check(counted == lsdb.malformedTotal(), "the malformed counts by reason do not add up to the total");
    check(lsdb.malformed().size() == std::min(lsdb.malformedTotal(), IgpLsdb::Lsdb::maxListedMalformed),
          "the malformed PDUs listed are not the first ones up to the limit");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 1) {
        return 0;
    }
    const std::uint8_t cutAt = data[0];
    const std::span<const std::uint8_t> file(data + 1, size - 1);

    const MemoryFile whole(file);
    bool opened = false;
    const auto frames = framesOf(whole.path(), opened);
    if (!opened) {
        return 0;
    }
    checkDatabases(whole.path(), frames.size());

    const MemoryFile cut(file.first(file.size() * cutAt / 255));
    bool cutOpened = false;
    const auto before = framesOf(cut.path(), cutOpened);
    check(before.size() <= frames.size(), "the file cut short holds more frames than the whole file");
    for (std::size_t i = 0; i < before.size(); ++i) {
        check(before[i] == frames[i], "a frame before the cut differs from the whole file's",
              [&] { return "frame " + std::to_string(i + 1); });
    }
    return 0;
}
