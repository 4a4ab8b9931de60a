// The object model: allocation, the type registry, reference counting, and the functions that
// every object answers by dispatching to its type.

#include "CFObject_p.h"

#include <climits>
#include <cstring>
#include <iterator>
#include <limits>
#include <string>

using CFInternal::headerOf;
using CFInternal::ObjectHeader;
using CFRuntime::TypeInfo;

namespace {

// Built-in types are known at compile time; this table is constant-initialized.
const TypeInfo* const builtInTypes[] = {
    nullptr, // kNotATypeID
    &CFInternal::stringTypeInfo,
    &CFInternal::numberTypeInfo,
    &CFInternal::booleanTypeInfo,
    &CFInternal::nullTypeInfo,
    &CFInternal::arrayTypeInfo,
    &CFInternal::setTypeInfo,
    &CFInternal::dictionaryTypeInfo,
    &CFInternal::urlTypeInfo,
    &CFInternal::dataTypeInfo,
};
static_assert(std::size(builtInTypes) == CFInternal::kFirstRegisteredTypeID,
              "a built-in type lacks its entry");

struct RegisteredType {
    TypeInfo info;
    std::string name;
};

// Registered types are published once and never change or go away, so readers need no lock.
constexpr std::size_t kMaxRegisteredTypes = 64;
std::atomic<const RegisteredType*> registeredTypes[kMaxRegisteredTypes];
std::atomic<CFTypeID> nextTypeID{CFInternal::kFirstRegisteredTypeID};

std::atomic<CFIndex> liveObjects{0};

const TypeInfo* typeInfo(CFTypeID typeID) {
    if (typeID < CFInternal::kFirstRegisteredTypeID)
        return builtInTypes[typeID];
    const std::size_t slot = typeID - CFInternal::kFirstRegisteredTypeID;
    if (slot >= kMaxRegisteredTypes)
        return nullptr;
    const RegisteredType* type = registeredTypes[slot].load(std::memory_order_acquire);
    return type ? &type->info : nullptr;
}

const TypeInfo& typeInfoOf(CFTypeRef object) {
    return *typeInfo(headerOf(object)->typeID);
}

CFTypeRef allocate(CFTypeID typeID, std::size_t bodySize, std::uint32_t flags) {
    if (!typeInfo(typeID) || bodySize > std::numeric_limits<std::size_t>::max() - CFRuntime::kBodyOffset)
        return nullptr;
    const std::size_t size = CFRuntime::kBodyOffset + bodySize;
    void* memory = ::operator new(size, std::align_val_t(CFRuntime::kBodyOffset), std::nothrow);
    if (!memory)
        return nullptr;
    std::memset(memory, 0, size);
    new (memory) ObjectHeader{typeID, {1}, flags};
    return memory;
}

} // namespace

CFTypeID CFRuntime::registerType(const TypeInfo& info) {
    if (!info.name)
        return kNotATypeID;
    const CFTypeID typeID = nextTypeID.fetch_add(1);
    const std::size_t slot = typeID - CFInternal::kFirstRegisteredTypeID;
    if (slot >= kMaxRegisteredTypes)
        return kNotATypeID;
    // Held for the life of the process, reachable from the table.
    auto* type = new RegisteredType{info, info.name};
    type->info.name = type->name.c_str();
    registeredTypes[slot].store(type, std::memory_order_release);
    return typeID;
}

CFTypeRef CFRuntime::createInstance(CFTypeID typeID, std::size_t bodySize) {
    CFTypeRef object = allocate(typeID, bodySize, 0);
    if (object)
        liveObjects.fetch_add(1, std::memory_order_relaxed);
    return object;
}

CFTypeRef CFRuntime::createImmortalInstance(CFTypeID typeID, std::size_t bodySize) {
    return allocate(typeID, bodySize, CFInternal::kImmortal);
}

CFIndex CFRuntime::liveObjectCount() {
    return liveObjects.load(std::memory_order_relaxed);
}

CFTypeID CFGetTypeID(CFTypeRef cf) {
    return cf ? headerOf(cf)->typeID : CFRuntime::kNotATypeID;
}

CFStringRef CFCopyTypeIDDescription(CFTypeID type_id) {
    const TypeInfo* info = typeInfo(type_id);
    return info ? CFInternal::createString(QString::fromUtf8(info->name)) : nullptr;
}

CFTypeRef CFRetain(CFTypeRef cf) {
    if (cf && !(headerOf(cf)->flags & CFInternal::kImmortal))
        headerOf(cf)->retainCount.fetch_add(1, std::memory_order_relaxed);
    return cf;
}

// Apple's CFRelease(NULL) is a crash; here it does nothing, so that every cleanup path can
// release what it holds without testing first.
void CFRelease(CFTypeRef cf) {
    if (!cf)
        return;
    ObjectHeader* header = headerOf(cf);
    if (header->flags & CFInternal::kImmortal)
        return;
    // acq_rel: the finalizing thread must see every write that other owners made before they
    // let go.
    if (header->retainCount.fetch_sub(1, std::memory_order_acq_rel) != 1)
        return;
    if (auto finalize = typeInfoOf(cf).finalize)
        finalize(cf);
    header->~ObjectHeader();
    ::operator delete(header, std::align_val_t(CFRuntime::kBodyOffset));
    liveObjects.fetch_sub(1, std::memory_order_relaxed);
}

CFIndex CFGetRetainCount(CFTypeRef cf) {
    if (!cf)
        return 0;
    if (headerOf(cf)->flags & CFInternal::kImmortal)
        return LONG_MAX;
    return headerOf(cf)->retainCount.load(std::memory_order_relaxed);
}

Boolean CFEqual(CFTypeRef cf1, CFTypeRef cf2) {
    if (cf1 == cf2)
        return true;
    if (!cf1 || !cf2 || CFGetTypeID(cf1) != CFGetTypeID(cf2))
        return false;
    auto equal = typeInfoOf(cf1).equal;
    return equal && equal(cf1, cf2);
}

CFHashCode CFHash(CFTypeRef cf) {
    if (!cf)
        return 0;
    auto hash = typeInfoOf(cf).hash;
    return hash ? hash(cf) : CFInternal::hashInteger(std::int64_t(reinterpret_cast<std::uintptr_t>(cf)));
}

CFStringRef CFCopyDescription(CFTypeRef cf) {
    if (!cf)
        return nullptr;
    const TypeInfo& info = typeInfoOf(cf);
    if (info.copyDescription)
        return info.copyDescription(cf);
    return CFInternal::createString(CFInternal::defaultDescription(info.name, cf));
}

CFHashCode CFInternal::hashBytes(const void* bytes, std::size_t size) {
    // FNV-1a: the same text hashes the same in every run, which keeps orders reproducible.
    std::uint64_t hash = 14695981039346656037ull;
    const auto* byte = static_cast<const unsigned char*>(bytes);
    for (std::size_t i = 0; i < size; ++i) {
        hash ^= byte[i];
        hash *= 1099511628211ull;
    }
    return CFHashCode(hash);
}

CFHashCode CFInternal::hashInteger(std::int64_t value) {
    // The finalizer of splitmix64: spreads neighbouring integers (and aligned addresses)
    // over all bits.
    std::uint64_t x = std::uint64_t(value);
    x ^= x >> 30;
    x *= 0xbf58476d1ce4e5b9ull;
    x ^= x >> 27;
    x *= 0x94d049bb133111ebull;
    x ^= x >> 31;
    return CFHashCode(x);
}

QString CFInternal::descriptionText(CFTypeRef object) {
    if (!object)
        return QStringLiteral("(null)");
    CFStringRef description = CFCopyDescription(object);
    QString text = stringText(description);
    CFRelease(description);
    return text;
}

QString CFInternal::defaultDescription(const char* typeName, const void* address) {
    return QStringLiteral("<%1 0x%2>").arg(QString::fromUtf8(typeName)).arg(quintptr(address), 0, 16);
}
