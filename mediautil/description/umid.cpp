#include <atomic>
#include <cstring>
#include <new>

#include "mediautil/object/media_obj_impl.h"
#include "services/metadata/generic_umid.h"
#include "services/metadata/user_data.h"
#include "shared/include/object/core_subsystem.h"
#include "shared/include/object/media_obj.h"

// A movie's identifier.

const UserDataSet* MediaObj::getUserDataMovie() const { return nullptr; }

UserDataSet* MediaObj::getUserDataMovie(bool) { return nullptr; }

const char* MediaObj::getUmid() const {
    const UserDataSet* const userData = getUserDataMovie();
    const UserDataValue* const value = userData != nullptr ? userData->getValue(UserDataEnum::KeyKind::Umid) : nullptr;
    if (value == nullptr || value->getKind() != UserDataEnum::ValueKind::Umid) return nullptr;
    return value->read();
}

OpResult MediaObj::generateUmid() { return MO_WARNING(MediaCode::OperationUnsupported, nullptr); }

OpResult MediaObj::setProxyUmid(const MediaObj&) { return MO_WARNING(MediaCode::OperationUnsupported, nullptr); }

const char* MediaObj::getSourceUmid(OpResult& result) {
    const char* const own = getUmid();
    if (own == nullptr) {
        result = MO_WARNING(MediaCode::UnknownError, "object has no umid");
        return nullptr;
    }
    const AutoPtr<GenericUmid> umid = GenericUmid::createFromString(own);
    if (umid.get() != nullptr) umid->resetInstance();
    const char* const text = umid.get() != nullptr ? umid->getStringValue() : nullptr;
    const char* const kept = text != nullptr ? impl().keepSourceUmid(text) : nullptr;
    if (kept == nullptr) result = MO_WARNING(MediaCode::InternalError, nullptr);
    return kept;
}

// All of these texts have one length.
const char* MediaObjImpl::keepSourceUmid(const char* text) {
    const std::size_t size = std::strlen(text) + 1;
    if (char* const kept = m_sourceUmid.load(std::memory_order_acquire)) {
        // Bytes that are right already stay untouched: other callers may be reading them.
        for (std::size_t i = 0; i < size; ++i) {
            const std::atomic_ref<char> byte(kept[i]);
            if (byte.load(std::memory_order_relaxed) != text[i]) byte.store(text[i], std::memory_order_relaxed);
        }
        return kept;
    }
    char* const fresh = new (std::nothrow) char[size];
    if (fresh == nullptr) return nullptr;
    std::memcpy(fresh, text, size);
    char* present = nullptr;
    if (m_sourceUmid.compare_exchange_strong(present, fresh, std::memory_order_acq_rel)) return fresh;
    delete[] fresh;
    return present;
}
