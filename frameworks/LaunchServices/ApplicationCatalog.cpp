#include "LaunchServices/ApplicationCatalog.h"

#include "CarbonCore/HomeFolder.h"

namespace frameworks {
namespace {

// Of all that are looked at, the best match for an identifier.
class BestMatch {
  public:
    // In small letters.
    explicit BestMatch(std::string_view identifier) : wanted(identifier) {}

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
    const std::string_view wanted;
    const ApplicationBundle* best = nullptr;
    bool bestIsInTrash = false;
};

}  // namespace

ApplicationCatalog& ApplicationCatalog::Get() {
    static ApplicationCatalog& catalog = *new ApplicationCatalog();
    return catalog;
}

void ApplicationCatalog::RefreshListing() {
    everybodys.RefreshListing();
    const std::optional<std::string> home = HomeFolder();
    const std::string folder = home ? *home + "/Applications" : std::string();
    if (folder.empty()) {
        users.reset();
    } else if (!users || users->Path() != folder) {
        users.emplace(folder, kLevels);
    }
    if (users) {
        users->RefreshListing();
    }
}

void ApplicationCatalog::ForEach(const std::function<void(ApplicationBundle&)>& visit) {
    everybodys.ForEach(visit);
    if (users) {
        users->ForEach(visit);
    }
    for (auto& [path, bundle] : registered) {
        visit(bundle);
    }
}

std::optional<std::string> ApplicationCatalog::Match(std::string_view identifier) {
    BestMatch match(identifier);
    ForEach([&match](const ApplicationBundle& bundle) { match.LookAt(bundle); });
    if (match.Best() == nullptr) return std::nullopt;
    return match.Best()->Path();
}

std::optional<std::string> ApplicationCatalog::Find(std::string_view identifier) {
    if (identifier.empty()) return std::nullopt;
    const std::string wanted = InLowerCase(identifier);
    const std::lock_guard<std::mutex> lock(mutex);
    RefreshListing();
    // An application that is known and has not changed is the answer, without a look at all others.
    bool hasChanged = false;
    ForEach([&](ApplicationBundle& bundle) {
        hasChanged = (bundle.Identifier() == wanted && bundle.Refresh()) || hasChanged;
    });
    if (!hasChanged) {
        std::optional<std::string> known = Match(wanted);
        if (known) return known;
    }
    ForEach([](ApplicationBundle& bundle) { bundle.Refresh(); });
    for (auto bundle = registered.begin(); bundle != registered.end();) {
        bundle = FileStamp::Of(bundle->first.c_str()).IsFolder() ? std::next(bundle)
                                                                 : registered.erase(bundle);
    }
    return Match(wanted);
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
    folder.RefreshListing();
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
