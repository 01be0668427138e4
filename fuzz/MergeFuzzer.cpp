// Stateful merges driven by arbitrary bytes: a program of up to 64 steps over one database (merge a
// parsed content drawn by the merge model, again or not; delete; replace; delete all).
// README.md lists what is checked after each step and at the end of the input.
#include <fuzzer/FuzzedDataProvider.h>

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "EntryMirror.h"
#include "FuzzSupport.h"

namespace {

using namespace Routing::IgpCommon;
using IgpFuzz::check;
using In = FuzzedDataProvider;

// Two systems, a pseudonode of the first and the all-zero id.
const std::array<IgpNodeId, 4> entryIds{IgpTest::pools::nodeIdOf(1, 0), IgpTest::pools::nodeIdOf(1, 1),
                                        IgpTest::pools::nodeIdOf(2, 0), IgpNodeId()};

Poldo::Ptr<IsisLspParsedContent> parsedContent(const IgpNodeId& id, const std::vector<std::uint8_t>& recipe) {
    In in(recipe.data(), recipe.size());
    return IgpTest::drawLsp(id, in);
}

void mergeInto(IgpLsp& entry, const Poldo::Ptr<IsisLspParsedContent>& parsed) {
    const std::string why = IgpTest::mergeFault(entry, parsed);
    check(why.empty(), "a merge left other than the parsed content", why);
}

class World {
public:
    void step(In& in) {
        const IgpNodeId id = entryIds[in.ConsumeIntegralInRange<std::size_t>(0, entryIds.size() - 1)];
        switch (in.ConsumeIntegralInRange(0, 4)) {
            case 0:
            case 1:
                merge(in, id);
                break;
            case 2: {
                const auto held = db_->lsp(id);
                check(db_->lspDel(id) == held, "lspDel returned another entry than the one held");
                watched_.erase(id);
                break;
            }
            case 3: {
                watched_.erase(id);
                auto entry = newEntry(id);
                mergeInto(*entry, parsedContent(id, recipe(in)));
                db_->lspIs(entry);
                check(db_->lsp(id) == entry, "lspIs did not replace the entry");
                break;
            }
            default:
                db_->lspDelAll();
                watched_.clear();
        }
        checkEntry(id);
    }

    /// Every entry, the database's shape, and the dump (which needs every entry to have a node).
    void checkWhole() const {
        std::size_t held = 0;
        for (auto it = db_->lsp().begin(); it != db_->lsp().end(); ++it, ++held) {
            check(db_->lsp((*it)->nodeId()) == *it, "an entry is not found under its own node id");
            checkEntry((*it)->nodeId());
        }
        check(held == db_->lspCount(), "the database counts another number of entries");
        auto sink = Umbo::DumpContext::discardingDumpContextIs();
        db_->dumpState(sink, 0);
    }

private:
    static std::vector<std::uint8_t> recipe(In& in) {
        return in.ConsumeBytes<std::uint8_t>(in.ConsumeIntegralInRange<std::size_t>(0, 400));
    }

    /// A new entry for `id` with its node, mirrored from the start.
    Poldo::Ptr<IgpLsp> newEntry(const IgpNodeId& id) {
        auto entry = igpLspFactory(id);
        entry->nodeIs(nodeFactory(id));
        watched_[id] = std::make_unique<IgpTest::Mirror>(entry);
        return entry;
    }

    void merge(In& in, const IgpNodeId& id) {
        Poldo::Ptr<IgpLsp> entry = db_->lsp(id);
        if (!entry) {
            db_->lspIs(entry = newEntry(id));
        }
        const auto bytes = recipe(in);
        auto& nanDrawn = IgpTest::Draw<In>::nanDrawn;
        nanDrawn = false;
        const auto content = parsedContent(id, bytes);
        mergeInto(*entry, content);
        const unsigned again = in.ConsumeIntegralInRange(0, 2);
        if (again == 1) {
            // The same LSP flooded again: nothing but the bindings it replaces is published.
            const IgpTest::Mirror& m = *watched_.at(id);
            const unsigned heard = m.notifications() - m.bindingNotifications();
            mergeInto(*entry, parsedContent(id, bytes));
            check(nanDrawn || m.notifications() - m.bindingNotifications() == heard,
                  "merging an unchanged LSP again published a change");
        } else if (again == 2) {
            mergeInto(*entry, content);  // each member merges from itself
        }
    }

    /// The entry of `id`: the one the fuzzer put there, under its own id, equal to what its mirror
    /// rebuilt from notifications.
    void checkEntry(const IgpNodeId& id) const {
        check(db_->lspCount() == watched_.size(), "the database and the fuzzer's entries differ in size");
        const auto entry = db_->lsp(id);
        check(watched_.contains(id) == (entry != nullptr),
              "the database holds other entries than the fuzzer put there");
        if (entry) {
            check(entry->nodeId() == id, "an entry is not found under its own node id");
            const std::string why = watched_.at(id)->fault();
            check(why.empty(), "an entry differs from its mirror", why);
        }
    }

    Poldo::Ptr<IgpLspDatabase> db_ = igpLspDatabaseFactory(igpLevelIsisLevel2);
    std::map<IgpNodeId, std::unique_ptr<IgpTest::Mirror>> watched_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    IgpFuzz::leavesNothingAlive("objects alive after teardown", [&] {
        In in(data, size);
        World world;
        for (int steps = 0; steps < 64 && in.remaining_bytes() > 0; ++steps) {
            world.step(in);
        }
        world.checkWhole();
    });
    return 0;
}
