// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/files/UniqueFd.h"
#include "platform/ini/Registry.h"
#include "service/components/Components.h"

/// What outlives the service: what was told of each component, what is pending, and settings changed at run time.
class CStateStore {
public:
    /// Reads the state; damage is told to the journal, and older copies are used.
    /// @param directory  made if it is missing; two services would tell everything twice and undo what the other keeps,
    ///                   so it is locked as long as this object lives
    /// @throw CAgentError when another service uses it
    explicit CStateStore(const std::string& directory);

    /// The components that the last run knew.
    std::vector<std::string> Known() const { return registry_.Children("components"); }

    /// Gives a component what the last run knew of it. Its mail is due when its event was not delivered for sure, or no
    /// server took it. One that no configuration names is told how it came to be known.
    void Restore(Component& component) const;

    void Keep(const Component& component);

    /// A component that is no longer watched.
    void Forget(const std::string& name) { Take("components/" + name); }

    /// @param data  "DA" of the answer
    void KeepSetting(std::uint32_t id, const std::string& data) { Put(SettingKey(id), data); }

    void ForgetSetting(std::uint32_t id) { Take(SettingKey(id)); }

    /// @return the ids of those that are kept
    std::vector<std::uint32_t> Settings() const;

    /// @return nothing when it is not kept
    std::optional<std::string> Setting(std::uint32_t id) const;

    /// Writes what has changed. Some milliseconds: two syncs.
    void Save();

    /// @return false when the last Save failed: what has changed since the one before waits for another
    bool IsSaved() const { return saveError_ == 0; }

private:
    static std::string SettingKey(std::uint32_t id) { return "settings/" + std::to_string(id); }
    void Put(const std::string& key, const std::string& value);
    void Take(const std::string& key);

    const std::string directory_;
    CUniqueFd lock_;
    CRegistry registry_;
    bool isChanged_ = false;  // since it was saved
    int saveError_ = 0;       // as it was told
};
