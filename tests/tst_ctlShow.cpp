// ui-element-ctl show and edit run as a person or a script runs them, on descriptions that
// ui-element-ctl capture saved from the mixer desktop: what show prints of each level, each kind of
// edit read back from the file by the library, and bad input that leaves the file as it was.

#include "UIElement.h"
#include "ctlProcess.h"
#include "dataObjectSerialization.h"
#include "testSupport.h"

#include <QJsonArray>

#include <tuple>

namespace {

const QString mixerDesktop = QStringLiteral(UIET_FIXTURES_DIR "/capture-desktop.json");
// Its application has the bundle id com.example.editor and the name Editor.
const QString editorDesktop = QStringLiteral(UIET_FIXTURES_DIR "/desktop-basic.json");

// The chains of the Mute and Solo buttons of the mixer: the window and the group have no role
// description of their own, so their roles stand for it.
const QString muteHierarchy =
    QStringLiteral("Mixer > AXWindow: \"Mixer\" > AXGroup > toggle button: \"Mute\"");
const QString soloHierarchy = QStringLiteral("Mixer > AXWindow: \"Mixer\" > AXGroup > AXButton: \"Solo\"");

// One line on the error stream, in the program's name.
bool isOneErrorLine(const QString& errors) {
    return errors.startsWith("ui-element-ctl: ") && errors.count('\n') == 1 && errors.endsWith('\n');
}

// The levels of an alternative of a saved collection, top first.
QList<const UIElement_p*> levelsOf(const UIElementCollection& collection, int alternative) {
    QList<const UIElement_p*> levels;
    collection.elements().at(alternative)->platformSpecificEntity()->topDownElementList(levels);
    return levels;
}

// A check of the loaded file: "LEVEL:PROPERTY", "LEVEL:attribute:KEY" or "LEVEL:option:KEY".
QVariant readBack(const QList<const UIElement_p*>& levels, const QString& check) {
    const QStringList parts = check.split(':');
    const UIElement_p* level = levels.at(parts.at(0).toInt());
    if (parts.size() == 3)
        return parts.at(1) == "attribute" ? level->attributes().value(parts.at(2))
                                          : level->options().value(parts.at(2));
    return level->property(parts.at(1).toLatin1());
}

} // namespace

class tst_ctlShow : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() {
        for (const auto& [point, name, status] :
             {std::tuple{"125,155", "mute.ini", 0}, {"195,155", "solo.ini", 0}, {"5000,5000", "null.ini", 1}})
            QCOMPARE(runCtl({"capture", "--desktop", mixerDesktop, point, tempPath(name)}).status, status);
        writeFileContent(tempPath("empty.ini"), QByteArray());

        // Mute first, Solo as the second alternative.
        UIElementCollection both, solo;
        deserializeObjectFromByteArray(&both, fileContent(tempPath("mute.ini")));
        deserializeObjectFromByteArray(&solo, fileContent(tempPath("solo.ini")));
        both.setElements({both.elements().first(), solo.elements().first()});
        writeFileContent(tempPath("both.ini"), serializeObjectToByteArray(&both));
    }

    void showsTheAttributeValues_data() {
        QTest::addColumn<QString>("file");
        QTest::addColumn<int>("level");
        QTest::addColumn<QString>("key");
        QTest::addColumn<QString>("displayName");
        QTest::addColumn<QString>("text");
        QTest::addColumn<QVariant>("json");
        QTest::newRow("bundle id of the application")
            << "mute.ini" << 0 << "bundleId"
            << "Bundle ID"
            << "\"com.example.mixer\"" << QVariant("com.example.mixer");
        QTest::newRow("title of the window") << "mute.ini" << 1 << "AXTitle"
                                             << "Title"
                                             << "\"Mixer\"" << QVariant("Mixer");
        QTest::newRow("subrole of the strip") << "mute.ini" << 2 << "AXSubrole"
                                              << "Element subtype"
                                              << "\"AXChannelStrip\"" << QVariant("AXChannelStrip");
        QTest::newRow("file of the strip") << "mute.ini" << 2 << "AXFilename"
                                           << "Filename"
                                           << "\"strip.xml\"" << QVariant("strip.xml");
        QTest::newRow("children of the strip") << "mute.ini" << 2 << "childCount"
                                               << "Number of children"
                                               << "4" << QVariant(4);
        QTest::newRow("role description of the button") << "mute.ini" << 3 << "AXRoleDescription"
                                                        << "Type description"
                                                        << "\"toggle button\"" << QVariant("toggle button");
        // Capture keeps integers as text.
        QTest::newRow("value of the button") << "mute.ini" << 3 << "AXValue"
                                             << "Value"
                                             << "\"0\"" << QVariant("0");
        QTest::newRow("first button") << "mute.ini" << 3 << "childIndex"
                                      << "Sibling order"
                                      << "0" << QVariant(0);
        QTest::newRow("third child") << "solo.ini" << 3 << "childIndex"
                                     << "Sibling order"
                                     << "2" << QVariant(2);
        QTest::newRow("second button") << "solo.ini" << 3 << "matchingRoleChildIndex"
                                       << "Sibling type order"
                                       << "1" << QVariant(1);
    }
    void showsTheAttributeValues() {
        QFETCH(QString, file);
        QFETCH(int, level);
        QFETCH(QString, key);
        QFETCH(QString, displayName);
        QFETCH(QString, text);
        QFETCH(QVariant, json);
        const CtlRun shown = runCtl({"show", tempPath(file)});
        QCOMPARE(shown.status, 0);
        QVERIFY(shown.errors.isEmpty());
        // The line stands in the block of its level.
        const qsizetype levelStart = shown.output.indexOf(QStringLiteral("\n  level %1: ").arg(level));
        const qsizetype levelEnd = shown.output.indexOf("\n  level ", levelStart + 1);
        const qsizetype line = shown.output.indexOf(
            QStringLiteral("\n      %1 [%2] = %3\n").arg(displayName, key, text), levelStart);
        QVERIFY2(levelStart >= 0 && line > levelStart && (levelEnd < 0 || line < levelEnd),
                 qPrintable(shown.output));

        const CtlRun asJson = runCtl({"show", "--json", tempPath(file)});
        QCOMPARE(asJson.status, 0);
        const QJsonObject levelObject = asJson.json()["alternatives"][0]["levels"][level].toObject();
        QCOMPARE(levelObject["level"].toInt(), level);
        QCOMPARE(levelObject["attributes"][key], QJsonValue::fromVariant(json));
        QCOMPARE(levelObject["displayNames"][key].toString(), displayName);
    }

    // Per level: the short description with role, application and target type, the defining
    // attributes, the matching method and the options.
    void showsEachLevel() {
        const CtlRun shown = runCtl({"show", tempPath("mute.ini")});
        QCOMPARE(shown.status, 0);
        for (const QString& line :
             {"alternative 0: " + muteHierarchy, QStringLiteral("  level 0: AXApplication \"Mixer\" - Mixer"),
              QStringLiteral("  level 1: AXWindow \"Mixer\" - Mixer"),
              QStringLiteral("  level 2: AXGroup - Mixer"),
              QStringLiteral("  level 3: toggle button \"Mute\" - Mixer"),
              QStringLiteral("    defining attributes: bundleId")})
            QVERIFY2(shown.output.split('\n').contains(line), qPrintable(line));
        QCOMPARE(shown.output.count("\n    matching: built-in\n"), 4);
        QCOMPARE(shown.output.count("\n    options: none\n"), 4);

        const CtlRun asJson = runCtl({"show", "--json", tempPath("mute.ini")});
        const QJsonObject answer = asJson.json();
        QCOMPARE(answer["file"].toString(), tempPath("mute.ini"));
        const QJsonArray alternatives = answer["alternatives"].toArray();
        QCOMPARE(alternatives.size(), 1);
        QCOMPARE(alternatives[0]["hierarchyDescription"].toString(), muteHierarchy);
        QCOMPARE(alternatives[0]["null"].toBool(), false);
        const QJsonArray levels = alternatives[0]["levels"].toArray();
        QCOMPARE(levels.size(), 4);
        // The application level shows which application, nothing else.
        QCOMPARE(levels[0]["attributes"].toObject().keys(), (QStringList{"bundleId", "processName"}));
        QCOMPARE(levels[0]["definingAttributes"].toArray(), QJsonArray{"bundleId"});
        // The button's important attributes are two, so its sibling order defines it too.
        QStringList defining;
        for (const QJsonValue& name : levels[3]["definingAttributes"].toArray())
            defining << name.toString();
        defining.sort();
        QCOMPARE(defining, (QStringList{"AXRole", "AXSubrole", "childIndex"}));
        QCOMPARE(levels[3]["description"].toString(), QString("toggle button \"Mute\" - Mixer"));
        for (const QJsonValue& level : levels) {
            QCOMPARE(level["matchingMethod"].toString(), QString("built-in"));
            QCOMPARE(level["options"].toObject(), QJsonObject());
        }
    }

    void showsEveryAlternative() {
        const QJsonArray alternatives =
            runCtl({"show", "--json", tempPath("both.ini")}).json()["alternatives"].toArray();
        QCOMPARE(alternatives.size(), 2);
        QCOMPARE(alternatives[0]["hierarchyDescription"].toString(), muteHierarchy);
        QCOMPARE(alternatives[1]["hierarchyDescription"].toString(), soloHierarchy);
        QCOMPARE(alternatives[1]["alternative"].toInt(), 1);

        // A null description has no levels; its empty application name stands before the invalid text.
        const CtlRun null = runCtl({"show", tempPath("null.ini")});
        QCOMPARE(null.status, 0);
        QCOMPARE(null.output, QString("alternative 0:  > < Invalid UI element >\n"
                                      "  the description is null: it stands for no element\n"));
        const QJsonObject nullAlternative =
            runCtl({"show", "--json", tempPath("null.ini")}).json()["alternatives"][0].toObject();
        QVERIFY(nullAlternative["null"].toBool());
        QCOMPARE(nullAlternative["levels"].toArray(), QJsonArray());
    }

    void edits_data() {
        QTest::addColumn<QStringList>("edits");
        QTest::addColumn<QString>("desktop");
        QTest::addColumn<QString>("printed");
        QTest::addColumn<QVariantMap>("checks"); // see readBack
        const QString mutedHierarchy = QString(muteHierarchy).replace("\"Mute\"", "\"Muted\"");
        QTest::newRow("title") << QStringList{"--level", "3", "--set", "AXTitle=Muted"} << mixerDesktop
                               << mutedHierarchy
                               << QVariantMap{{"3:title", "Muted"}, {"3:attribute:AXTitle", "Muted"}};
        QTest::newRow("the last of two edits wins")
            << QStringList{"--level", "3", "--set", "AXTitle=Once", "--set", "AXTitle=Muted"} << mixerDesktop
            << mutedHierarchy << QVariantMap{{"3:title", "Muted"}};
        QTest::newRow("several values")
            << QStringList{"--level", "3", "--set", "childIndex=[3,5]"} << mixerDesktop << muteHierarchy
            << QVariantMap{{"3:childIndex", 3}, {"3:attribute:childIndex", QVariantList{3, 5}}};
        QTest::newRow("text in quotes")
            << QStringList{"--level", "3", "--set", "AXValue=\"1\""} << mixerDesktop << muteHierarchy
            << QVariantMap{{"3:attribute:AXValue", "1"}};
        QTest::newRow("plain text") << QStringList{"--level", "2", "--set", "AXFilename=other strip.xml"}
                                    << mixerDesktop << muteHierarchy
                                    << QVariantMap{{"2:attribute:AXFilename", "other strip.xml"}};
        QTest::newRow("rect") << QStringList{"--level", "3", "--set",
                                             R"(localRect={"x":1,"y":2,"width":3,"height":4})"}
                              << mixerDesktop << muteHierarchy
                              << QVariantMap{{"3:localRect", QRect(1, 2, 3, 4)}};
        QTest::newRow("bundle id at the top changes every level")
            << QStringList{"--level", "0", "--set", "bundleId=com.example.editor"} << editorDesktop
            << QString(muteHierarchy).replace(0, 5, "Editor")
            << QVariantMap{{"0:bundleId", "com.example.editor"}, {"1:bundleId", "com.example.editor"},
                           {"2:bundleId", "com.example.editor"}, {"3:bundleId", "com.example.editor"},
                           {"0:applicationName", "Editor"},      {"3:applicationName", "Editor"}};
        QTest::newRow("bundle id below the top changes that level")
            << QStringList{"--level", "2", "--set", "bundleId=com.example.editor"} << editorDesktop
            << muteHierarchy
            << QVariantMap{{"2:bundleId", "com.example.editor"},
                           {"0:bundleId", "com.example.mixer"},
                           {"3:bundleId", "com.example.mixer"}};
        QTest::newRow("defining attributes")
            << QStringList{"--level", "3", "--defining", "AXSubrole,childIndex"} << mixerDesktop
            << muteHierarchy
            << QVariantMap{{"3:definingAttributes", QStringList{"AXSubrole", "childIndex"}},
                           {"2:definingAttributes", QStringList{"AXSubrole", "AXFilename", "AXRole"}}};
        QTest::newRow("no defining attributes")
            << QStringList{"--level", "3", "--defining", ""} << mixerDesktop << muteHierarchy
            << QVariantMap{{"3:definingAttributes", QStringList()}};
        QTest::newRow("strict matching")
            << QStringList{"--matching", "strict"} << mixerDesktop << muteHierarchy
            << QVariantMap{{"0:matchingMethod", 1}, {"3:matchingMethod", 1}};
        // Custom matching with nothing that names the application: any application.
        QTest::newRow("any application")
            << QStringList{"--matching", "custom", "--level", "0", "--defining", ""} << mixerDesktop
            << QString(muteHierarchy).replace(0, 5, "*")
            << QVariantMap{{"0:matchingMethod", 2},
                           {"3:matchingMethod", 2},
                           {"0:applicationName", "*"},
                           {"3:applicationName", "*"}};
        QTest::newRow("option") << QStringList{"--level", "2", "--option", "syncToProToolsSelectedTrack=true"}
                                << mixerDesktop << muteHierarchy
                                << QVariantMap{{"2:option:syncToProToolsSelectedTrack", true},
                                               {"3:option:syncToProToolsSelectedTrack", QVariant()}};
        QTest::newRow("number option")
            << QStringList{"--level", "1", "--option", "weight=2.5"} << mixerDesktop << muteHierarchy
            << QVariantMap{{"1:option:weight", 2.5}};
    }
    void edits() {
        QFETCH(QStringList, edits);
        QFETCH(QString, desktop);
        QFETCH(QString, printed);
        QFETCH(QVariantMap, checks);
        const QString path = tempPath("edited.ini");
        writeFileContent(path, fileContent(tempPath("mute.ini")));
        const CtlRun edited = runCtl(QStringList{"edit", "--desktop", desktop, path} + edits);
        QVERIFY2(edited.status == 0, qPrintable(edited.errors));
        QCOMPARE(edited.output, printed + "\n");
        QVERIFY(edited.errors.isEmpty());

        UIElementCollection saved;
        deserializeObjectFromByteArray(&saved, fileContent(path));
        QCOMPARE(saved.elements().size(), 1);
        const QList<const UIElement_p*> levels = levelsOf(saved, 0);
        QCOMPARE(levels.size(), 4);
        for (auto it = checks.cbegin(); it != checks.cend(); ++it) {
            QVariant value = readBack(levels, it.key());
            if (value.typeId() == QMetaType::QStringList && it.value().typeId() == QMetaType::QStringList) {
                // The order of defining attributes carries no meaning.
                QStringList names = value.toStringList(), expected = it.value().toStringList();
                names.sort();
                expected.sort();
                QVERIFY2(names == expected, qPrintable(it.key()));
            } else {
                QVERIFY2(value == it.value(), qPrintable(it.key() + ": " + value.toString()));
            }
        }
        // show reads what edit wrote.
        QVERIFY(runCtl({"show", path}).output.startsWith("alternative 0: " + printed + "\n"));
    }

    void editsOneAlternative() {
        const QString path = tempPath("edited.ini");
        writeFileContent(path, fileContent(tempPath("both.ini")));
        const CtlRun edited =
            runCtl({"edit", "--json", path, "--alternative", "1", "--level", "3", "--set", "AXTitle=Solo 2"});
        QCOMPARE(edited.status, 0);
        const QString soloTwo = QString(soloHierarchy).replace("\"Solo\"", "\"Solo 2\"");
        QCOMPARE(edited.json(),
                 (QJsonObject{{"file", path}, {"alternative", 1}, {"hierarchyDescription", soloTwo}}));
        UIElementCollection saved;
        deserializeObjectFromByteArray(&saved, fileContent(path));
        QCOMPARE(saved.elements().size(), 2);
        QCOMPARE(levelsOf(saved, 0).last()->title(), QString("Mute"));
        QCOMPARE(levelsOf(saved, 1).last()->title(), QString("Solo 2"));
    }

    void badEdits_data() {
        QTest::addColumn<QString>("file"); // copied from this one; none: no FILE given
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QString>("message"); // @ is the file edited
        const QStringList setTitle{"--set", "AXTitle=Changed"};
        QTest::newRow("unknown option")
            << "mute.ini" << QStringList{"--level", "3", "--bogus", "1"} << "edit has no option --bogus";
        QTest::newRow("level past the chain")
            << "mute.ini" << QStringList{"--level", "4"} + setTitle
            << "alternative 0 in @ has no level 4; its chain has the levels 0 to 3";
        QTest::newRow("negative level")
            << "mute.ini" << QStringList{"--level", "-1"} + setTitle
            << "--level must be a whole number from 0 (the top of the chain), not '-1'";
        QTest::newRow("alternative past the list")
            << "both.ini" << QStringList{"--alternative", "2", "--level", "0"} + setTitle
            << "@ has no alternative 2; it holds the alternatives 0 to 1";
        QTest::newRow("name the level does not hold")
            << "mute.ini" << QStringList{"--level", "3", "--set", "AXNoSuchThing=1"}
            << "level 3 of alternative 0 in @ has no attribute AXNoSuchThing to set";
        QTest::newRow("attribute of another level")
            << "mute.ini" << QStringList{"--level", "1", "--set", "AXSubrole=AXToggle"}
            << "level 1 of alternative 0 in @ has no attribute AXSubrole to set";
        QTest::newRow("bad edit after a good one")
            << "mute.ini" << QStringList{"--level", "3"} + setTitle + QStringList{"--set", "AXNoSuchThing=1"}
            << "has no attribute AXNoSuchThing";
        QTest::newRow("no edit") << "mute.ini" << QStringList{"--level", "3"}
                                 << "edit needs at least one of --set, --defining, --matching and --option";
        QTest::newRow("no level") << "mute.ini" << setTitle
                                  << "--set, --defining and --option need --level N";
        QTest::newRow("no value") << "mute.ini" << QStringList{"--level", "3", "--set"}
                                  << "--set needs a value";
        QTest::newRow("no name") << "mute.ini" << QStringList{"--level", "3", "--set", "=5"}
                                 << "--set takes NAME=VALUE, not '=5'";
        QTest::newRow("object that is no rect")
            << "mute.ini" << QStringList{"--level", "3", "--set", R"(localRect={"x":1,"y":2,"width":3})"}
            << "a JSON object stands for a rect";
        QTest::newRow("rect of fractions")
            << "mute.ini"
            << QStringList{"--level", "3", "--set", R"(localRect={"x":1.5,"y":2,"width":3,"height":4})"}
            << "a JSON object stands for a rect";
        QTest::newRow("null in a list")
            << "mute.ini" << QStringList{"--level", "3", "--set", "childIndex=[1,null]"}
            << "null is no value a description holds";
        // Rects inside a list: the settings reader of a process without a GUI cannot check them, so
        // the edit would not come back from the file.
        QTest::newRow("alternative rects")
            << "mute.ini"
            << QStringList{"--level", "3", "--set", R"(localRect=[{"x":1,"y":2,"width":3,"height":4}])"}
            << "the edited collection does not load back as edited, so @ is left as it was";
        QTest::newRow("unknown matching") << "mute.ini" << QStringList{"--matching", "fuzzy"}
                                          << "--matching takes builtin, strict or custom, not 'fuzzy'";
        QTest::newRow("two files") << "mute.ini" << QStringList{tempPath("solo.ini"), "--matching", "strict"}
                                   << "edit takes one FILE, not both @ and " + tempPath("solo.ini");
        QTest::newRow("null description") << "null.ini" << QStringList{"--matching", "strict"}
                                          << "alternative 0 in @ is null: it describes no element";
        QTest::newRow("no collection")
            << "empty.ini" << QStringList{"--matching", "strict"} << "@ holds no UI element collection";
        QTest::newRow("no such file") << "" << QStringList{tempPath("none.ini"), "--matching", "strict"}
                                      << "cannot read " + tempPath("none.ini");
        QTest::newRow("no file") << "" << QStringList{"--matching", "strict"}
                                 << "edit needs the FILE of a saved UI element collection";
    }
    void badEdits() {
        QFETCH(QString, file);
        QFETCH(QStringList, arguments);
        QFETCH(QString, message);
        const QString path = tempPath("target.ini");
        QFile::remove(path);
        QByteArray before;
        if (!file.isEmpty()) {
            before = fileContent(tempPath(file));
            writeFileContent(path, before);
            arguments.prepend(path);
        }
        const CtlRun edited = runCtl(QStringList{"edit", "--desktop", mixerDesktop} + arguments);
        QCOMPARE(edited.status, 2);
        QVERIFY(edited.output.isEmpty());
        QVERIFY2(isOneErrorLine(edited.errors), qPrintable(edited.errors));
        QVERIFY2(edited.errors.contains(message.replace("@", path)), qPrintable(edited.errors));
        if (!file.isEmpty())
            QCOMPARE(fileContent(path), before);
        // Nothing was left beside it either.
        QCOMPARE(QDir::temp().entryList({"target.ini*"}, QDir::Files).size(), file.isEmpty() ? 0 : 1);
    }

    void badShows_data() {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QString>("message");
        QTest::newRow("no file") << QStringList() << "show needs the FILE of a saved UI element collection";
        QTest::newRow("two files") << QStringList{tempPath("mute.ini"), tempPath("solo.ini")}
                                   << "show takes one FILE, not both " + tempPath("mute.ini");
        QTest::newRow("unknown option")
            << QStringList{"--level", "3", tempPath("mute.ini")} << "show has no option --level";
        QTest::newRow("no such file")
            << QStringList{tempPath("none.ini")} << "cannot read " + tempPath("none.ini");
        QTest::newRow("no collection") << QStringList{tempPath("empty.ini")}
                                       << tempPath("empty.ini") + " holds no UI element collection";
    }
    void badShows() {
        QFETCH(QStringList, arguments);
        QFETCH(QString, message);
        const CtlRun shown = runCtl(QStringList{"show"} + arguments);
        QCOMPARE(shown.status, 2);
        QVERIFY(shown.output.isEmpty());
        QVERIFY2(isOneErrorLine(shown.errors) && shown.errors.contains(message), qPrintable(shown.errors));
    }
};

UIET_TEST_MAIN(tst_ctlShow)
#include "tst_ctlShow.moc"
