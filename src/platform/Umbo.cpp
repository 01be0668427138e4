#include "IgpCommon/platform/Umbo.h"

#include <cstdarg>
#include <cstdio>
#include <memory>

#include "IgpCommon/framework/Assert.h"

namespace Umbo {

Poldo::Ptr<DumpContext> DumpContext::dumpContextIs(std::ostream& out) {
    return Poldo::Ptr<DumpContext>(new DumpContext(Kind::stream, &out), Poldo::adopt);
}

Poldo::Ptr<DumpContext> DumpContext::dumpContextIs() {
    return Poldo::Ptr<DumpContext>(new DumpContext(Kind::collect), Poldo::adopt);
}

Poldo::Ptr<DumpContext> DumpContext::discardingDumpContextIs() {
    return Poldo::Ptr<DumpContext>(new DumpContext(Kind::discard), Poldo::adopt);
}

void DumpContext::write(std::string_view s) const {
    switch (kind_) {
        case Kind::stream:
            out_->write(s.data(), static_cast<std::streamsize>(s.size()));
            break;
        case Kind::collect:
            text_.append(s);
            break;
        case Kind::discard:
            break;
    }
    bytes_ += s.size();
}

void _objDumpPrintf(const Poldo::Ptr<DumpContext const>& ctx, const char* format, ...) {
    KEST_ASSERT_MSG(ctx, "dump into a null DumpContext");
    char stackBuf[1024];
    va_list args;
    va_start(args, format);
    va_list again;
    va_copy(again, args);
    const int n = std::vsnprintf(stackBuf, sizeof stackBuf, format, args);
    va_end(args);
    if (n < 0) {
        va_end(again);
        return;  // an encoding error leaves nothing worth writing
    }
    const auto len = static_cast<std::size_t>(n);
    if (len < sizeof stackBuf) {
        va_end(again);
        ctx->write(std::string_view(stackBuf, len));
        return;
    }
    const std::unique_ptr<char[]> heapBuf(new char[len + 1]);
    std::vsnprintf(heapBuf.get(), len + 1, format, again);
    va_end(again);
    ctx->write(std::string_view(heapBuf.get(), len));
}

}  // namespace Umbo
