#include "IgpCommon/framework/Publisher.h"

#include <algorithm>
#include <vector>

namespace Poldo {

// Observers removed during a publication leave a null behind, so that the
// publication in progress keeps its place; the list is compacted once the
// outermost publication has finished.
struct Publisher::List {
    std::vector<Observer*> observers;
    unsigned depth = 0;
    bool holes = false;
};

Publisher::~Publisher() {
    delete list_;
}

void Publisher::observerIs(Observer& o) {
    if (list_ == nullptr) {
        list_ = new List;
    }
    auto& v = list_->observers;
    if (std::find(v.begin(), v.end(), &o) == v.end()) {
        v.push_back(&o);
    }
}

void Publisher::observerDel(Observer& o) noexcept {
    if (list_ == nullptr) {
        return;
    }
    auto& v = list_->observers;
    const auto it = std::find(v.begin(), v.end(), &o);
    if (it == v.end()) {
        return;
    }
    if (list_->depth > 0) {
        *it = nullptr;
        list_->holes = true;
    } else {
        v.erase(it);
    }
}

std::uint32_t Publisher::observerCount() const noexcept {
    if (list_ == nullptr) {
        return 0;
    }
    return static_cast<std::uint32_t>(std::count_if(list_->observers.begin(), list_->observers.end(),
                                                    [](Observer* o) { return o != nullptr; }));
}

void Publisher::dispatch(const Notification& n) const {
    List& l = *list_;
    // Observers added during this publication hear the next one.
    const std::size_t count = l.observers.size();
    ++l.depth;
    struct Leave {
        List& l;
        ~Leave() {
            if (--l.depth == 0 && l.holes) {
                std::erase(l.observers, nullptr);
                l.holes = false;
            }
        }
    } leave{l};
    for (std::size_t i = 0; i < count; ++i) {
        if (Observer* o = l.observers[i]) {
            o->onChange(n);
        }
    }
}

}  // namespace Poldo
