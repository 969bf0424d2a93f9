#pragma once
// What benches share about samples they make themselves.
#include <algorithm>
#include <cstring>

#include "shading/sample.h"

// A renderer sets every item the program asks for: the ones a bench did not
// set are marked set with the value they hold (their default).
inline void setEveryNeededItem(Tsample* s, const TbitField64& needs) {
    s->confirmSet(needs);
    for (unsigned k = 0; k < kSampleItemCount; ++k)
        if (needs.test(k) && s->hasItem(k) && !s->isSet(k)) {
            unsigned char value[64];
            const unsigned n = std::min(Tsample::sStorageSize(k), unsigned(sizeof value));
            std::memcpy(value, s->item(k), n);
            s->setItem(k, value, n);
        }
}
