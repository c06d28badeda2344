#include "client/app/Languages.h"

#include <QCoreApplication>
#include <QLibraryInfo>
#include <QLocale>
#include <QTranslator>
#include <memory>

#include "core/locale/KTLocale.h"
#include "core/locale/MoreTexts.h"
#include "core/locale/TextTable.h"

namespace client {
namespace {

// Language files are named as their speakers name the language ("Deutsch").
QLocale LocaleNamed(const QString& name) {
    const auto all =
        QLocale::matchingLocales(QLocale::AnyLanguage, QLocale::AnyScript, QLocale::AnyTerritory);
    for (const QLocale& locale : all) {
        if (locale.nativeLanguageName().compare(name, Qt::CaseInsensitive) == 0)
            return QLocale(locale.language());
    }
    return QLocale(QLocale::English);
}

void UseQtTranslation(const QString& name) {
    static std::unique_ptr<QTranslator> current;
    if (current) QCoreApplication::removeTranslator(current.get());
    current.reset();
    if (name == kDefaultLanguage) return;
    auto translator = std::make_unique<QTranslator>();
    if (!translator->load(LocaleNamed(name), "qtbase", "_",
                          QLibraryInfo::path(QLibraryInfo::TranslationsPath)))
        return;
    QCoreApplication::installTranslator(translator.get());
    current = std::move(translator);
}

}  // namespace

void InstallBuiltInTexts() {
    KTLocale* locale = KTLocale::GetInstance();
    locale->SetAppID(kTextAppId);
    locale->SetDefaultText(core::kTextTable.data(), core::kTextCount, kDefaultLanguage);
    locale->SetMoreText(core::kMoreTextTable.data(), core::kMoreTextCount);
}

std::vector<std::string> LanguageFolders(const std::string& programFolder,
                                         const std::string& userFolder) {
    if (programFolder == userFolder) return {programFolder + "/locale"};
    return {userFolder + "/locale", programFolder + "/locale"};
}

void UseLanguage(const std::vector<std::string>& folders, const std::string& name) {
    KTLocale::GetInstance()->SetLanguage(folders, name.c_str());
    UseQtTranslation(QString::fromUtf8(KTLocale::GetInstance()->Language()));
}

}  // namespace client
