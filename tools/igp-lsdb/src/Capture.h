// Reading packets frame by frame through libpcap: from a capture file (pcap
// or pcapng, plain or gzip-compressed), from standard input, from the capture
// built into the binary, or live from a network interface.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>

struct pcap;  // libpcap's handle, pcap_t

namespace IgpLsdb {

struct CapturedFrame {
    unsigned number = 0;                  // 1-based, as capture viewers count
    std::int64_t timeMicros = 0;          // capture time, microseconds since 1970-01-01 UTC
    std::span<const std::uint8_t> bytes;  // valid until the next call to next()
    std::int64_t time = 0;                // capture time, microseconds since 1970-01-01 UTC
};

class Capture {
public:
    /// The name that stands for the built-in capture in messages.
    static constexpr const char* builtInName = "(built-in frr-initial-lsps.pcap)";
    /// The name that stands for standard input ("-" on the command line).
    static constexpr const char* stdinName = "(standard input)";
    /// The capture filter of live captures: IS-IS over 802.3/LLC, also behind one VLAN tag.
    static constexpr const char* liveFilter = "isis or (vlan and isis)";

    /// Opens a capture file, or standard input for "-"; gzip-compressed
    /// captures are decompressed as they are read. On failure returns null
    /// and sets `error` to one line that says why (without the file name).
    static std::unique_ptr<Capture> open(const std::string& path, std::string& error);
    /// Opens the capture built into the binary.
    static std::unique_ptr<Capture> openBuiltIn(std::string& error);
    /// Starts capturing on a network interface, IS-IS frames only. Reading
    /// goes on until stopAll() (a signal handler may call it).
    static std::unique_ptr<Capture> openLive(const std::string& interface, std::string& error);

    /// Stops every live capture: its reading ends once the frames that the
    /// kernel received before the stop are read, so an interrupt loses
    /// nothing that arrived before it. Async-signal-safe.
    static void stopAll() noexcept;

    ~Capture();
    Capture(const Capture&) = delete;
    Capture& operator=(const Capture&) = delete;

    const std::string& name() const noexcept { return name_; }
    /// The pcap LINKTYPE_ value of the capture's frames.
    std::uint32_t linkType() const noexcept { return linkType_; }
    bool live() const noexcept { return live_; }

    /// The next frame; false at the end, when stopped, or when the capture
    /// ends early (cut short or unreadable: then error() says why).
    bool next(CapturedFrame& frame);
    /// Empty unless reading ended early; every frame before was delivered.
    const std::string& error() const noexcept { return error_; }
    /// The number of the last whole frame delivered (0 before the first).
    unsigned lastFrame() const noexcept { return count_; }
    /// Frames of a live capture that the kernel dropped for want of room; 0 for files.
    std::uint64_t dropped() const noexcept;
    /// How far reading has come, 0 to 1; negative when unknown.
    double progress() const noexcept;

    struct Handle;  // libpcap's handle and what it reads from

private:
    Capture(std::string name, std::unique_ptr<Handle> handle, std::uint64_t size);

    std::string name_;
    std::unique_ptr<Handle> handle_;
    std::uint64_t size_ = 0;
    std::uint32_t linkType_ = 0;
    unsigned count_ = 0;
    bool live_ = false;
    // Stopped: the frames stamped up to `stoppedAt` (microseconds) are still read.
    bool draining_ = false;
    std::int64_t stoppedAt_ = 0;
    std::string error_;
};

}  // namespace IgpLsdb
