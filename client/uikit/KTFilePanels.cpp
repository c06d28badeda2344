#include "client/uikit/KTFilePanels.h"

#include <QWidget>

#include "client/uikit/KTAlert.h"
#include "kit/app/BLooper.h"

namespace {

QWidget* Open(QWidget* parent, KTPanelRequest::Kind kind, const KTFilePanels::Place& place,
              uint32_t code, const BHandler* target) {
    KTPanelRequest request;
    request.parent = parent;
    request.kind = kind;
    request.directory = place.folder;
    request.name = place.name;
    if (const size_t slash = place.lastPath.rfind('/'); slash != std::string::npos) {
        request.directory = slash == 0 ? "/" : place.lastPath.substr(0, slash);
        request.name = place.lastPath.substr(slash + 1);
    }
    if (kind == KTPanelRequest::Kind::Open) request.name.clear();
    // The view may be gone when the panel answers; its messenger then finds nobody.
    return KTDialogs::Get()->OpenPanel(
        request, [kind, code, to = BMessenger(target)](const std::optional<std::string>& path) {
            BMessage answer(path ? code : B_CANCEL);
            if (!path) {
                answer.Add("old_what", static_cast<int32_t>(code));
            } else if (kind == KTPanelRequest::Kind::Save) {
                const size_t slash = path->rfind('/');
                if (slash == std::string::npos) return;
                answer.Add("directory", entry_ref{slash == 0 ? "/" : path->substr(0, slash)});
                answer.Add("name", path->substr(slash + 1));
            } else {
                answer.Add("refs", entry_ref{*path});
            }
            to.SendMessage(std::move(answer));
        });
}

}  // namespace

QWidget* KTFilePanels::OpenSave(QWidget* parent, const Place& place, uint32_t code,
                                const BHandler* target) {
    return Open(parent, KTPanelRequest::Kind::Save, place, code, target);
}

QWidget* KTFilePanels::OpenLoad(QWidget* parent, const Place& place, uint32_t code,
                                const BHandler* target) {
    return Open(parent, KTPanelRequest::Kind::Open, place, code, target);
}

std::optional<std::string> KTFilePanels::SavePath(const BMessage& answer) {
    const auto directory = answer.Find<entry_ref>("directory");
    const auto name = answer.FindString("name");
    if (!directory || !name || name->empty() || directory->path.empty()) return std::nullopt;
    return directory->path + (directory->path.back() == '/' ? "" : "/") + std::string(*name);
}

std::optional<std::string> KTFilePanels::LoadPath(const BMessage& answer) {
    const auto ref = answer.Find<entry_ref>("refs");
    if (!ref || ref->path.empty()) return std::nullopt;
    return ref->path;
}
