// A test observer that records every notification it hears.
//
// Each notification becomes one Record: the attribute id and name, whether it
// carried a key and an old value, and copies of the key and the old value
// taken while the notification was alive (its pointers die with the callback).
//
// The copies are typed: list the types the entity under test may publish as
// the template arguments, and every key or old value whose type is one of
// them is copied into a std::any. A notification's key and old value carry
// their exact C++ type, so at most one listed type matches each of them.
//
//     using Rec = IgpTest::RecordingObserver<SrSidRangeIndex, SrSidRange>;
//     auto caps = SrCapabilities::SrCapabilitiesIs();   // declare the entity first...
//     Rec rec(caps->publisher());                       // ...so the observer is gone before it
//     caps->sidLabelRangeIs(SrSidRangeIndex(1), SrSidRange(10, Lumo::MplsLabel(100)));
//     ASSERT_EQ(rec.size(), 1u);
//     EXPECT_EQ(rec[0].attr, SrCapabilities::Attr::sidLabelRange);
//     EXPECT_EQ(*rec[0].keyAs<SrSidRangeIndex>(), SrSidRangeIndex(1));
//     EXPECT_EQ(*rec[0].oldAs<SrSidRange>(), SrSidRange());
//
// For anything the listed types do not cover (a copy that needs conversion,
// a look at the entity itself), pass a callback to `onRecord`; it runs inside
// the notification with the live Notification and the Record being built.
//
// Lifetime: an observer built with a publisher registers there and unregisters
// when destroyed, so it must not outlive that publisher's entity (declare the
// entity's Ptr before the observer). `attach`/`detach` do the same by hand.
#pragma once

#include <any>
#include <cstddef>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "IgpCommon/framework/Publisher.h"

namespace IgpTest {

/// One recorded notification.
struct Record {
    Poldo::AttrId attr = 0;
    std::string attrName;
    bool hasKey = false;
    bool hasOldValue = false;
    /// A copy of the key when its type was one of the listed types, else empty.
    std::any key;
    /// A copy of the old value when its type was one of the listed types, else empty.
    std::any oldValue;
    /// Whatever an `onRecord` callback chose to keep.
    std::any extra;

    /// The key copy as a K, or null when there was none of that type.
    template <class K>
    const K* keyAs() const noexcept {
        return std::any_cast<K>(&key);
    }
    /// The old value copy as a V, or null when there was none of that type.
    template <class V>
    const V* oldAs() const noexcept {
        return std::any_cast<V>(&oldValue);
    }
};

template <class... Types>
class RecordingObserver final : public Poldo::Observer {
public:
    using Callback = std::function<void(const Poldo::Notification&, Record&)>;

    RecordingObserver() = default;
    explicit RecordingObserver(Poldo::Publisher& p) { attach(p); }
    RecordingObserver(const RecordingObserver&) = delete;
    RecordingObserver& operator=(const RecordingObserver&) = delete;
    ~RecordingObserver() override { detach(); }

    /// Registers with `p` (leaving any publisher attached before).
    void attach(Poldo::Publisher& p) {
        detach();
        p.observerIs(*this);
        publisher_ = &p;
    }
    /// Unregisters from the attached publisher, if any.
    void detach() noexcept {
        if (publisher_ != nullptr) {
            publisher_->observerDel(*this);
            publisher_ = nullptr;
        }
    }

    /// Runs `f` for every notification, after the standard fields are recorded.
    void onRecord(Callback f) { callback_ = std::move(f); }

    void onChange(const Poldo::Notification& n) override {
        Record r;
        r.attr = n.attr();
        r.attrName = std::string(n.attrName());
        r.hasKey = n.hasKey();
        r.hasOldValue = n.hasOldValue();
        (copyAs<Types>(n, r), ...);
        if (callback_) {
            callback_(n, r);
        }
        records_.push_back(std::move(r));
    }

    const std::vector<Record>& records() const noexcept { return records_; }
    std::size_t size() const noexcept { return records_.size(); }
    bool empty() const noexcept { return records_.empty(); }
    const Record& operator[](std::size_t i) const { return records_.at(i); }
    void clear() noexcept { records_.clear(); }

    /// The attribute ids in publication order.
    std::vector<Poldo::AttrId> attrs() const {
        std::vector<Poldo::AttrId> ids;
        ids.reserve(records_.size());
        for (const Record& r : records_) {
            ids.push_back(r.attr);
        }
        return ids;
    }

private:
    template <class T>
    static void copyAs(const Poldo::Notification& n, Record& r) {
        if (const T* k = n.key<T>()) {
            r.key = *k;
        }
        if (const T* v = n.oldValue<T>()) {
            r.oldValue = *v;
        }
    }

    Poldo::Publisher* publisher_ = nullptr;
    Callback callback_;
    std::vector<Record> records_;
};

}  // namespace IgpTest
