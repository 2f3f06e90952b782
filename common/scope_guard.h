// Undoes on every way out of a scope, unless told to keep. Stands right below what it undoes.
#pragma once

namespace tessaly {

template <typename Undo>
class scope_guard {
public:
    explicit scope_guard(Undo undo) noexcept : undo_(undo) {}
    scope_guard(const scope_guard&) = delete;
    scope_guard& operator=(const scope_guard&) = delete;
    ~scope_guard()
    {
        if (!kept_)
            undo_();
    }

    void keep() noexcept { kept_ = true; }

private:
    Undo undo_;
    bool kept_ = false;
};

}  // namespace tessaly
