#include "Host/Data/Tdata.h"
#include "Host/Base/ThostException.h"

#include <cmath>

std::uint64_t Tletter::sCopyCount = 0;
const Tdata Tdata::fsNULL;
const TletterClass TdataNumber::sClass{"number", nullptr};

void Tdata::makeWriter() {
    if (fLetter && fLetter->refCount() > 1) {
        Tletter* copy = fLetter->clone();
        copy->ref();
        fLetter->unref();
        fLetter = copy;
    }
    fWriter = true;
}

TanimTime Tdata::timeValue() const {
    if (auto* n = as<TdataNumber>()) return n->time();
    return TanimTime();
}

double Tdata::convertToDoubleValue() const {
    if (auto* n = as<TdataNumber>()) return n->value();
    return 0.0;
}

std::int32_t Tdata::convertToInt32Value() const {
    return static_cast<std::int32_t>(std::lround(convertToDoubleValue()));
}

void Tdata::throwWrongClass(const TletterClass& wanted) const {
    throw ThostException(ThostException::kWrongLetterClass,
                         std::string("expected data of class ") + wanted.name + ", found " +
                             (fLetter ? fLetter->letterClass().name : "nothing"));
}
