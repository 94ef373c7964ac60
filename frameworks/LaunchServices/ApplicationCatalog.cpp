#include "LaunchServices/ApplicationCatalog.h"

#include "CarbonCore/HomeFolder.h"

namespace frameworks {
namespace {

// Of all that are looked at, the best match for an identifier.
class Match {
  public:
    explicit Match(std::string_view identifier) : wanted(InLowerCase(identifier)) {}

    void LookAt(const ApplicationBundle& bundle) {
        if (bundle.Identifier() != wanted) return;
        const bool isInTrash = IsInTrash(bundle.Path());
        // The first of equals stays.
        const bool isBetter = best == nullptr || (bestIsInTrash && !isInTrash) ||
                              (bestIsInTrash == isInTrash && best->Version() < bundle.Version());
        if (isBetter) {
            best = &bundle;
            bestIsInTrash = isInTrash;
        }
    }

    const ApplicationBundle* Best() const { return best; }

  private:
    const std::string wanted;
    const ApplicationBundle* best = nullptr;
    bool bestIsInTrash = false;
};

}  // namespace

ApplicationCatalog& ApplicationCatalog::Get() {
    static ApplicationCatalog& catalog = *new ApplicationCatalog();
    return catalog;
}

void ApplicationCatalog::Refresh() {
    everybodys.Refresh();
    const std::optional<std::string> home = HomeFolder();
    const std::string folder = home ? *home + "/Applications" : std::string();
    if (folder.empty()) {
        users.reset();
    } else if (!users || users->Path() != folder) {
        users.emplace(folder, kLevels);
    }
    if (users) {
        users->Refresh();
    }
    for (auto bundle = registered.begin(); bundle != registered.end();) {
        bundle->second.Refresh();
        bundle = FileStamp::Of(bundle->first.c_str()).IsFolder() ? std::next(bundle)
                                                                 : registered.erase(bundle);
    }
}

std::optional<std::string> ApplicationCatalog::Find(std::string_view identifier) {
    const std::lock_guard<std::mutex> lock(mutex);
    Refresh();
    Match match(identifier);
    const auto visit = [&match](const ApplicationBundle& bundle) { match.LookAt(bundle); };
    everybodys.ForEach(visit);
    if (users) {
        users->ForEach(visit);
    }
    for (const auto& [path, bundle] : registered) {
        match.LookAt(bundle);
    }
    if (identifier.empty() || match.Best() == nullptr) return std::nullopt;
    return match.Best()->Path();
}

ApplicationCatalog::Registration ApplicationCatalog::RegisterBundle(const std::string& path) {
    ApplicationBundle bundle(path);
    bundle.Refresh();
    if (bundle.IsBroken()) return Registration::kBroken;
    if (bundle.Identifier().empty()) return Registration::kNothingToRegister;
    registered.insert_or_assign(path, std::move(bundle));
    return Registration::kDone;
}

ApplicationCatalog::Registration ApplicationCatalog::RegisterFolder(const std::string& path) {
    ApplicationFolder folder(path, 0);
    folder.Refresh();
    Registration result = Registration::kNothingToRegister;
    folder.ForEach([&](const ApplicationBundle& bundle) {
        if (RegisterBundle(bundle.Path()) == Registration::kDone) {
            result = Registration::kDone;
        }
    });
    return result;
}

ApplicationCatalog::Registration ApplicationCatalog::Register(const std::string& path) {
    const std::lock_guard<std::mutex> lock(mutex);
    return IsNamedLikeApplication(path) ? RegisterBundle(path) : RegisterFolder(path);
}

}  // namespace frameworks
