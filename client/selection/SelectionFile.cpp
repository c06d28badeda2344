#include "client/selection/SelectionFile.h"

namespace SelectionFile {

int32_t Save(BMessage& request, const BMessage& selection, bool anythingSelected,
             const Kind& kind) {
    if (!anythingSelected) {
        request.Clear();
        return 4;
    }
    const auto directory = request.Find<entry_ref>("directory");
    const auto name = request.FindString("name");
    if (!directory || !name) return static_cast<int32_t>(core::HeaderSave::CannotCreate);
    return static_cast<int32_t>(core::SaveHeaderFile(directory->path + "/" + std::string(*name),
                                                     kind.magic, selection, kind.mimeType));
}

int32_t Load(const BMessage& request, BMessage* selection, const Kind& kind) {
    const auto file = request.Find<entry_ref>("refs");
    if (!file) return static_cast<int32_t>(core::HeaderLoad::CannotOpen);
    return static_cast<int32_t>(core::LoadHeaderFile(file->path, kind.magic, selection));
}

}  // namespace SelectionFile
