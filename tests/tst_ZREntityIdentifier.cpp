#include "ZREntity.h"
#include "ZREntityIdentifier.h"
#include "testSupport.h"

#include <QPointer>
#include <QRegularExpression>
#include <QSet>
#include <QTest>
#include <QThread>
#include <QVariant>

#include <atomic>
#include <climits>
#include <deque>
#include <memory>
#include <new>
#include <vector>

namespace {

const char threadWarning[] = "Warning: creating ZREntityIdentifier in different thread than entity.";

using Counts = std::pair<int, int>;

// The number that a new entity is given now.
unsigned long long freshIdentifier() {
    ZREntity probe;
    return ZREntityIdentifier(&probe).integerIdentifier();
}

} // namespace

using MakeIdentifier = ZREntityIdentifier (*)();
Q_DECLARE_METATYPE(MakeIdentifier)

class tst_ZREntityIdentifier : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init() { QTest::failOnWarning(QRegularExpression(QStringLiteral(".*"))); }

    // Must stay first: nothing may have made an identifier before.
    void registeredBeforeMainAndStartsAtOne() {
        QVERIFY(QMetaType::fromName("ZREntityIdentifier").isValid());
        QVERIFY(ZREntityIdentifier(nullptr).isNull());

        ZREntity first;
        ZREntity second;
        const ZREntityIdentifier firstId(&first);
        const ZREntityIdentifier secondId(&second);
        QCOMPARE(firstId.integerIdentifier(), 1ULL);
        QCOMPARE(secondId.integerIdentifier(), 2ULL);
        QVERIFY(firstId < secondId && secondId > firstId && firstId != secondId);
        QCOMPARE(ZREntityIdentifier::trackedEntityCount(), Counts(2, 2));
    }

    void oneEntityOneIdentifier() {
        ZREntity entity;
        const ZREntityIdentifier id(&entity);
        const ZREntityIdentifier again(&entity);
        const ZREntityIdentifier viaPointer{QPointer<ZREntity>(&entity)};
        const ZREntityIdentifier looked = ZREntityIdentifier::fromIntegerIdentifier(id.integerIdentifier());

        QVERIFY(!id.isNull());
        for (const ZREntityIdentifier& other : {again, viaPointer, looked}) {
            QCOMPARE(other, id);
            QCOMPARE(qHash(other, 7), qHash(id, 7));
        }
        QCOMPARE(QSet<ZREntityIdentifier>({id, again, looked}).size(), 1);
    }

    void nullForms_data() {
        QTest::addColumn<MakeIdentifier>("make");
        QTest::newRow("default") << MakeIdentifier([] { return ZREntityIdentifier(); });
        QTest::newRow("null entity") << MakeIdentifier([] { return ZREntityIdentifier(nullptr); });
        QTest::newRow("empty pointer")
            << MakeIdentifier([] { return ZREntityIdentifier(QPointer<ZREntity>()); });
        QTest::newRow("cleared pointer") << MakeIdentifier([] {
            QPointer<ZREntity> pointer(new ZREntity);
            delete pointer.data();
            return ZREntityIdentifier(pointer);
        });
        QTest::newRow("zero") << MakeIdentifier([] { return ZREntityIdentifier::fromIntegerIdentifier(0); });
        QTest::newRow("never given") << MakeIdentifier(
            [] { return ZREntityIdentifier::fromIntegerIdentifier(ULLONG_MAX); });
    }
    void nullForms() {
        QFETCH(MakeIdentifier, make);
        const unsigned long long last = freshIdentifier();
        const Counts before = ZREntityIdentifier::trackedEntityCount();

        const ZREntityIdentifier id = make();
        QVERIFY(id.isNull());
        QCOMPARE(id.integerIdentifier(), 0ULL);
        QCOMPARE(ZREntityIdentifier::trackedEntityCount(), before);
        QCOMPARE(freshIdentifier(), last + 1); // nothing consumed
    }

    // A child that is a subclass goes with its parent: destroyed comes after its own destructor.
    void destroyedEntitiesLeaveTheRegistry() {
        class Subclass : public ZREntity {
        public:
            using ZREntity::ZREntity;
        };
        const Counts before = ZREntityIdentifier::trackedEntityCount();
        auto* parent = new ZREntity;
        const ZREntityIdentifier parentId(parent);
        const ZREntityIdentifier childId(new Subclass(parent));
        const ZREntityIdentifier copy = childId;
        QCOMPARE(ZREntityIdentifier::trackedEntityCount(), Counts(before.first + 2, before.second + 2));

        delete parent;
        for (const ZREntityIdentifier& id : {parentId, childId, copy}) {
            QVERIFY(id.isNull());
            QVERIFY(ZREntityIdentifier::fromIntegerIdentifier(id.integerIdentifier()).isNull());
        }
        QCOMPARE(ZREntityIdentifier::trackedEntityCount(), before);
        QVERIFY(freshIdentifier() > childId.integerIdentifier());
    }

    void reusedAddressGetsNewIdentifier() {
        alignas(ZREntity) unsigned char storage[sizeof(ZREntity)];
        auto* first = new (storage) ZREntity;
        const ZREntityIdentifier firstId(first);
        first->~ZREntity();
        auto* second = new (storage) ZREntity;
        const ZREntityIdentifier secondId(second);

        QVERIFY(secondId > firstId);
        QVERIFY(firstId.isNull());
        QVERIFY(!secondId.isNull());
        second->~ZREntity();
    }

    void otherThreadWarnsAndStillAnswers_data() {
        QTest::addColumn<bool>("byNumber");
        QTest::newRow("from entity") << false;
        QTest::newRow("from number") << true;
    }
    void otherThreadWarnsAndStillAnswers() {
        QFETCH(bool, byNumber);
        ZREntity entity;
        const ZREntityIdentifier id(&entity);
        ZREntityIdentifier made;

        QTest::ignoreMessage(QtWarningMsg, threadWarning);
        const std::unique_ptr<QThread> thread(QThread::create([&] {
            made = byNumber ? ZREntityIdentifier::fromIntegerIdentifier(id.integerIdentifier())
                            : ZREntityIdentifier(&entity);
        }));
        thread->start();
        thread->wait();
        QCOMPARE(made, id);
    }

    void variantRoundTrip() {
        ZREntity entity;
        const ZREntityIdentifier id(&entity);
        const QVariant variant = QVariant::fromValue(id);
        QCOMPARE(variant.metaType(), QMetaType::fromName("ZREntityIdentifier"));
        QCOMPARE(variant.value<ZREntityIdentifier>(), id);
        QCOMPARE(variant, QVariant::fromValue(ZREntityIdentifier(&entity)));

        const QVariant made(QMetaType::fromName("ZREntityIdentifier"));
        QVERIFY(made.value<ZREntityIdentifier>().isNull());
    }

    // Threads make, look up and drop entities at once, each asking about the others' newest
    // identifier as it goes; every number must be unique and nothing may stay behind.
    void manyThreadsAtOnce() {
        constexpr int threadCount = 8;
        constexpr int entitiesPerThread = 3000;
        constexpr size_t liveAtOnce = 8; // freed addresses come back, here and on other threads
        const Counts before = ZREntityIdentifier::trackedEntityCount();
        std::vector<std::vector<unsigned long long>> given(threadCount);
        std::atomic<int> faults{0};
        std::atomic<ZREntityIdentifier> newest{ZREntityIdentifier()};

        std::vector<std::unique_ptr<QThread>> threads;
        for (int t = 0; t < threadCount; ++t) {
            threads.emplace_back(QThread::create([&, t] {
                std::deque<std::pair<std::unique_ptr<ZREntity>, ZREntityIdentifier>> live;
                const auto drop = [&] {
                    const ZREntityIdentifier id = live.front().second;
                    live.pop_front();
                    if (!id.isNull() ||
                        !ZREntityIdentifier::fromIntegerIdentifier(id.integerIdentifier()).isNull())
                        ++faults;
                };
                for (int i = 0; i < entitiesPerThread; ++i) {
                    auto entity = std::make_unique<ZREntity>();
                    const ZREntityIdentifier id(entity.get());
                    const unsigned long long number = id.integerIdentifier();
                    if (id.isNull() || ZREntityIdentifier(entity.get()) != id ||
                        ZREntityIdentifier::fromIntegerIdentifier(number) != id ||
                        (!given[t].empty() && number <= given[t].back()))
                        ++faults;
                    given[t].push_back(number);
                    // The answer depends on timing; asked so that lookups meet other threads' changes.
                    newest.load().isNull();
                    newest.store(id);
                    live.emplace_back(std::move(entity), id);
                    if (live.size() > liveAtOnce)
                        drop();
                }
                while (!live.empty())
                    drop();
            }));
        }
        for (const auto& thread : threads)
            thread->start();
        for (const auto& thread : threads)
            thread->wait();

        QCOMPARE(faults.load(), 0);
        QSet<unsigned long long> unique;
        for (const auto& numbers : given) {
            for (unsigned long long number : numbers) {
                QVERIFY(number != 0);
                unique.insert(number);
            }
        }
        QCOMPARE(unique.size(), threadCount * entitiesPerThread);
        QCOMPARE(ZREntityIdentifier::trackedEntityCount(), before);
    }
};

UIET_TEST_MAIN(tst_ZREntityIdentifier)
#include "tst_ZREntityIdentifier.moc"
