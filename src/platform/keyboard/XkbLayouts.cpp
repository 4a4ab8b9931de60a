#include "XkbLayouts.h"

#include <QHash>
#include <QMutex>
#include <QMutexLocker>

#include <xkbcommon/xkbcommon-compose.h>
#include <xkbcommon/xkbcommon-keysyms.h>
#include <xkbcommon/xkbcommon.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <list>
#include <memory>

namespace {

// The keys of the Apple keyboard by virtual key code, at the key of the same place on a PC
// keyboard (ANSI and ISO). Where both differ in shape the place wins: Help is the key of Insert,
// the keypad's Clear that of Num Lock, Eisu and Kana those of Muhenkan and Henkan, and the
// section key of ISO keyboards the one beside the left Shift. -1: no such key.
// clang-format off
constexpr std::array<short, 128> kEvdevByVirtualKey = {
    // 0x00: A S D F H G Z X C V section B Q W E R
    30,  31,  32,  33,  35,  34,  44,  45,  46,  47,  86,  48,  16,  17,  18,  19,
    // 0x10: Y T 1 2 3 4 6 5 = 9 7 - 8 0 ] O
    21,  20,  2,   3,   4,   5,   7,   6,   13,  10,  8,   12,  9,   11,  27,  24,
    // 0x20: U [ I P Return L J ' K ; \ , / N M .
    22,  26,  23,  25,  28,  38,  36,  40,  37,  39,  43,  51,  53,  49,  50,  52,
    // 0x30: Tab Space ` Delete - Esc RightCommand Command Shift CapsLock Option Control
    //       RightShift RightOption RightControl Fn
    15,  57,  41,  14,  -1,  1,   126, 125, 42,  58,  56,  29,  54,  100, 97,  -1,
    // 0x40: F17 KP. - KP* - KP+ - Clear VolumeUp VolumeDown Mute KP/ KPEnter - KP- F18
    187, 83,  -1,  55,  -1,  78,  -1,  69,  115, 114, 113, 98,  96,  -1,  74,  188,
    // 0x50: F19 KP= KP0 KP1 KP2 KP3 KP4 KP5 KP6 KP7 F20 KP8 KP9 Yen Underscore KP,
    189, 117, 82,  79,  80,  81,  75,  76,  77,  71,  190, 72,  73,  124, 89,  95,
    // 0x60: F5 F6 F7 F3 F8 F9 Eisu F11 Kana F13 F16 F14 - F10 Menu F12
    63,  64,  65,  61,  66,  67,  94,  87,  92,  183, 186, 184, -1,  68,  127, 88,
    // 0x70: - F15 Help Home PageUp ForwardDelete F4 End F2 PageDown F1 Left Right Down Up -
    -1,  185, 110, 102, 104, 111, 62,  107, 60,  109, 59,  105, 106, 108, 103, -1,
};
// clang-format on

// The layout data: this header, then the keymap's text.
struct LayoutDataHeader {
    char magic[8];
    quint64 digest;
    quint32 group;
    quint32 textLength;
};
constexpr char kLayoutDataMagic[8] = {'X', 'K', 'B', 'L', 'A', 'Y', '0', '1'};

struct KeymapDeleter {
    void operator()(xkb_keymap* keymap) const { xkb_keymap_unref(keymap); }
};
using KeymapPtr = std::unique_ptr<xkb_keymap, KeymapDeleter>;

struct StateDeleter {
    void operator()(xkb_state* state) const { xkb_state_unref(state); }
};
using StatePtr = std::unique_ptr<xkb_state, StateDeleter>;

struct ComposeStateDeleter {
    void operator()(xkb_compose_state* state) const { xkb_compose_state_unref(state); }
};
using ComposeStatePtr = std::unique_ptr<xkb_compose_state, ComposeStateDeleter>;

// A compiled layout, with the keys that select its levels.
struct CompiledLayout {
    quint64 digest = 0;
    quint32 group = 0;
    quint32 textLength = 0;
    KeymapPtr keymap;
    xkb_keycode_t shiftKey = XKB_KEYCODE_INVALID;
    xkb_keycode_t levelThreeKey = XKB_KEYCODE_INVALID;
    xkb_keycode_t numLockKey = XKB_KEYCODE_INVALID;
};

// The XKB context, the compose table and the compiled layouts, shared by all threads: libxkbcommon
// objects are not safe to share without a lock.
struct Xkb {
    QMutex mutex;
    xkb_context* context = nullptr;
    xkb_compose_table* compose = nullptr;
    // The layouts translated last, newest first: a table of a layout costs hundreds of
    // translations, and compiling a keymap is far dearer than one.
    std::list<CompiledLayout> compiled;
    static constexpr size_t kCompiledKept = 8;

    Xkb() {
        context = xkb_context_new(XKB_CONTEXT_NO_ENVIRONMENT_NAMES);
        if (!context)
            return;
        xkb_context_set_log_level(context, XKB_LOG_LEVEL_CRITICAL);
        // A fixed locale, not the user's: the accents that dead keys give are stored text and
        // must not change with the environment.
        compose = xkb_compose_table_new_from_locale(context, "en_US.UTF-8", XKB_COMPOSE_COMPILE_NO_FLAGS);
    }
};

Xkb& xkb() {
    // Never destroyed: translations may be asked for until the process ends.
    static Xkb* const instance = new Xkb;
    return *instance;
}

const LayoutDataHeader* headerOf(const UCKeyboardLayout* layout) {
    const auto* header = reinterpret_cast<const LayoutDataHeader*>(layout);
    if (!header || std::memcmp(header->magic, kLayoutDataMagic, sizeof kLayoutDataMagic) != 0)
        return nullptr;
    return header;
}

bool keyTypesAtFirstLevel(xkb_keymap* keymap, xkb_keycode_t key, xkb_layout_index_t group,
                          xkb_keysym_t wanted) {
    const xkb_layout_index_t layouts = xkb_keymap_num_layouts_for_key(keymap, key);
    if (layouts == 0)
        return false;
    const xkb_keysym_t* syms = nullptr;
    const int count = xkb_keymap_key_get_syms_by_level(keymap, key, group % layouts, 0, &syms);
    return std::find(syms, syms + count, wanted) != syms + count;
}

// The lowest key code whose first level is `wanted` in the group.
xkb_keycode_t findKey(xkb_keymap* keymap, xkb_layout_index_t group, xkb_keysym_t wanted) {
    for (xkb_keycode_t key = xkb_keymap_min_keycode(keymap); key <= xkb_keymap_max_keycode(keymap); ++key)
        if (keyTypesAtFirstLevel(keymap, key, group, wanted))
            return key;
    return XKB_KEYCODE_INVALID;
}

// Under the lock.
const CompiledLayout* compiledLayout(Xkb& shared, const LayoutDataHeader& header) {
    for (auto it = shared.compiled.begin(); it != shared.compiled.end(); ++it) {
        if (it->digest == header.digest && it->group == header.group && it->textLength == header.textLength) {
            shared.compiled.splice(shared.compiled.begin(), shared.compiled, it);
            return &shared.compiled.front();
        }
    }
    if (!shared.context)
        return nullptr;
    const char* text = reinterpret_cast<const char*>(&header + 1);
    KeymapPtr keymap(xkb_keymap_new_from_buffer(shared.context, text, header.textLength,
                                                XKB_KEYMAP_FORMAT_TEXT_V1, XKB_KEYMAP_COMPILE_NO_FLAGS));
    if (!keymap)
        return nullptr;
    CompiledLayout compiled;
    compiled.digest = header.digest;
    compiled.group = header.group;
    compiled.textLength = header.textLength;
    compiled.shiftKey = findKey(keymap.get(), header.group, XKB_KEY_Shift_L);
    compiled.levelThreeKey = findKey(keymap.get(), header.group, XKB_KEY_ISO_Level3_Shift);
    compiled.numLockKey = findKey(keymap.get(), header.group, XKB_KEY_Num_Lock);
    compiled.keymap = std::move(keymap);
    shared.compiled.push_front(std::move(compiled));
    if (shared.compiled.size() > Xkb::kCompiledKept)
        shared.compiled.pop_back();
    return &shared.compiled.front();
}

// The text of a dead key's keysym composed with a second keysym; empty when that composes nothing.
QString composed(xkb_compose_table* table, xkb_keysym_t dead, xkb_keysym_t second) {
    ComposeStatePtr state(xkb_compose_state_new(table, XKB_COMPOSE_STATE_NO_FLAGS));
    if (!state)
        return {};
    xkb_compose_state_feed(state.get(), dead);
    if (xkb_compose_state_get_status(state.get()) != XKB_COMPOSE_COMPOSING)
        return {};
    xkb_compose_state_feed(state.get(), second);
    if (xkb_compose_state_get_status(state.get()) != XKB_COMPOSE_COMPOSED)
        return {};
    char utf8[64] = {};
    xkb_compose_state_get_utf8(state.get(), utf8, sizeof utf8);
    return QString::fromUtf8(utf8);
}

// Under the lock.
QString textOfKeysym(const Xkb& shared, xkb_keysym_t sym) {
    if (const char32_t character = xkb_keysym_to_utf32(sym))
        return QString::fromUcs4(&character, 1);
    if (!shared.compose)
        return {};
    // A dead key typed twice gives its accent by itself; the few that do not compose with
    // themselves give it with a space.
    const QString twice = composed(shared.compose, sym, sym);
    return twice.isEmpty() ? composed(shared.compose, sym, XKB_KEY_space) : twice;
}

void pressKey(xkb_state* state, xkb_keycode_t key) {
    if (key != XKB_KEYCODE_INVALID)
        xkb_state_update_key(state, key, XKB_KEY_DOWN);
}

} // namespace

int evdevKeyCodeForVirtualKeyCode(int virtualKeyCode) {
    if (virtualKeyCode < 0 || virtualKeyCode >= int(kEvdevByVirtualKey.size()))
        return -1;
    return kEvdevByVirtualKey[size_t(virtualKeyCode)];
}

int virtualKeyCodeForEvdevKeyCode(int evdevKeyCode) {
    // Every key of a PC keyboard sits at one place of the Apple keyboard at most.
    const auto found = std::find(kEvdevByVirtualKey.begin(), kEvdevByVirtualKey.end(), evdevKeyCode);
    return evdevKeyCode < 0 || found == kEvdevByVirtualKey.end() ? -1
                                                                 : int(found - kEvdevByVirtualKey.begin());
}

CFDataRef createKeyboardLayoutData(const QByteArray& keymapText, quint32 group) {
    LayoutDataHeader header{};
    std::memcpy(header.magic, kLayoutDataMagic, sizeof kLayoutDataMagic);
    header.digest = qHash(keymapText, 0);
    header.group = group;
    header.textLength = quint32(keymapText.size());
    QByteArray bytes(reinterpret_cast<const char*>(&header), sizeof header);
    bytes.append(keymapText);
    return CFDataCreate(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(bytes.constData()), bytes.size());
}

CFDataRef createKeyboardLayoutDataFromNames(const char* layout, const char* variant) {
    Xkb& shared = xkb();
    QByteArray text;
    {
        QMutexLocker locker(&shared.mutex);
        if (!shared.context)
            return nullptr;
        const xkb_rule_names names{"evdev", "pc105", layout, variant, nullptr};
        KeymapPtr keymap(xkb_keymap_new_from_names(shared.context, &names, XKB_KEYMAP_COMPILE_NO_FLAGS));
        if (!keymap)
            return nullptr;
        char* asString = xkb_keymap_get_as_string(keymap.get(), XKB_KEYMAP_FORMAT_TEXT_V1);
        text = QByteArray(asString);
        free(asString);
    }
    return createKeyboardLayoutData(text, 0);
}

bool translateKeyOnLayout(const UCKeyboardLayout* layout, int virtualKeyCode, quint32 modifierState,
                          QString& text) {
    text.clear();
    const LayoutDataHeader* header = headerOf(layout);
    if (!header)
        return false;
    Xkb& shared = xkb();
    QMutexLocker locker(&shared.mutex);
    const CompiledLayout* compiled = compiledLayout(shared, *header);
    if (!compiled)
        return false;
    const int evdev = evdevKeyCodeForVirtualKeyCode(virtualKeyCode);
    if (evdev < 0)
        return true;
    StatePtr state(xkb_state_new(compiled->keymap.get()));
    if (!state)
        return false;
    xkb_state_update_mask(state.get(), 0, 0, 0, 0, 0, compiled->group);
    if (compiled->numLockKey != XKB_KEYCODE_INVALID) {
        xkb_state_update_key(state.get(), compiled->numLockKey, XKB_KEY_DOWN);
        xkb_state_update_key(state.get(), compiled->numLockKey, XKB_KEY_UP);
    }
    if (modifierState & 0x02)
        pressKey(state.get(), compiled->shiftKey);
    if (modifierState & 0x08)
        pressKey(state.get(), compiled->levelThreeKey);
    const xkb_keysym_t* syms = nullptr;
    const int count = xkb_state_key_get_syms(state.get(), xkb_keycode_t(evdev + 8), &syms);
    for (int i = 0; i < count; ++i)
        text += textOfKeysym(shared, syms[i]);
    return true;
}
