// Records every notification, copying its key and old value when their type is a listed one
// (`onRecord` keeps anything else). Declare the entity's Ptr first: the observer must die before it.
#pragma once

#include <any>
#include <cstddef>
#include <functional>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "IgpCommon/framework/Publisher.h"

namespace IgpTest {

struct Record {
    Poldo::AttrId attr = 0;
    std::string attrName;
    bool hasKey = false;
    bool hasOldValue = false;
    std::any key;
    std::any oldValue;
    std::any extra;

    template <class K>
    const K* keyAs() const noexcept {
        return std::any_cast<K>(&key);
    }
    template <class V>
    const V* oldAs() const noexcept {
        return std::any_cast<V>(&oldValue);
    }
};

template <class... Types>
class RecordingObserver final : public Poldo::Observer {
public:
    using Callback = std::function<void(const Poldo::Notification&, Record&)>;

    explicit RecordingObserver(Poldo::Publisher& p) : publisher_(&p) { p.observerIs(*this); }
    RecordingObserver(const RecordingObserver&) = delete;
    RecordingObserver& operator=(const RecordingObserver&) = delete;
    ~RecordingObserver() override { detach(); }

    void detach() noexcept {
        if (publisher_ != nullptr) {
            publisher_->observerDel(*this);
            publisher_ = nullptr;
        }
    }

    void onRecord(Callback f) { callback_ = std::move(f); }

    void onChange(const Poldo::Notification& n) override {
        Record r;
        r.attr = n.attr();
        r.attrName = std::string(n.attrName());
        r.hasKey = n.hasKey();
        r.hasOldValue = n.hasOldValue();
        const auto copy = [&]<class T>(std::type_identity<T>) {
            if (const T* k = n.key<T>()) {
                r.key = *k;
            }
            if (const T* v = n.oldValue<T>()) {
                r.oldValue = *v;
            }
        };
        ((void)copy, ..., copy(std::type_identity<Types>{}));
        if (callback_) {
            callback_(n, r);
        }
        records_.push_back(std::move(r));
    }

    std::size_t size() const noexcept { return records_.size(); }
    bool empty() const noexcept { return records_.empty(); }
    const Record& operator[](std::size_t i) const { return records_.at(i); }
    void clear() noexcept { records_.clear(); }

    std::vector<Poldo::AttrId> attrs() const {
        std::vector<Poldo::AttrId> ids;
        for (const Record& r : records_) {
            ids.push_back(r.attr);
        }
        return ids;
    }

private:
    Poldo::Publisher* publisher_ = nullptr;
    Callback callback_;
    std::vector<Record> records_;
};

}  // namespace IgpTest
