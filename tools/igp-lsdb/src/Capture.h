// Reading packet captures (pcap and pcapng, through libpcap) frame by frame,
// from a file or from the capture built into the binary.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>

struct pcap;  // libpcap's handle, pcap_t

namespace IgpLsdb {

struct CapturedFrame {
    unsigned number = 0;                  // 1-based, as capture viewers count
    std::span<const std::uint8_t> bytes;  // valid until the next call to next()
    std::int64_t time = 0;                // capture time, microseconds since 1970-01-01 UTC
};

class Capture {
public:
    /// The name that stands for the built-in capture in messages.
    static constexpr const char* builtInName = "(built-in frr-initial-lsps.pcap)";

    /// Opens a capture file. On failure returns null and sets `error` to one
    /// line that says why (without the file name).
    static std::unique_ptr<Capture> open(const std::string& path, std::string& error);
    /// Opens the capture built into the binary.
    static std::unique_ptr<Capture> openBuiltIn(std::string& error);

    ~Capture();
    Capture(const Capture&) = delete;
    Capture& operator=(const Capture&) = delete;

    const std::string& name() const noexcept { return name_; }
    /// The pcap LINKTYPE_ value of the capture's frames.
    std::uint32_t linkType() const noexcept { return linkType_; }

    /// The next frame; false at the end or on a read error (then error() says why).
    bool next(CapturedFrame& frame);
    const std::string& error() const noexcept { return error_; }
    /// How far reading has come, 0 to 1; negative when unknown.
    double progress() const noexcept;

private:
    struct Handle;
    Capture(std::string name, ::pcap* pcap, std::uint64_t size);

    std::string name_;
    std::unique_ptr<Handle> handle_;
    std::uint64_t size_ = 0;
    std::uint32_t linkType_ = 0;
    unsigned count_ = 0;
    std::string error_;
};

}  // namespace IgpLsdb
