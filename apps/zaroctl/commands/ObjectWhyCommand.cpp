// object why
#include <algorithm>
#include <iterator>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "ZaroErrC.h"
#include "commands/CommandTree.h"
#include "commands/Commands.h"
#include "console/Text.h"
#include "store/Database.h"
#include "store/Objects.h"

using zaroruntime::FailureKind;
using zaroruntime::RuntimeError;

namespace {

using Owners = std::set<unsigned int>;

// Takes the library's steps one by one, and looks after each what became of one object.
class Explanation {
 public:
  Explanation(const Viewer& viewer, const StoredObject& object) : m_viewer(viewer), m_object(object) {
    for (const GroupEntity& entity : allEntities()) {
      m_entities.push_back(entity);
    }
  }

  void explain() {
    _read();
    if (!m_viewer.isRoot && m_wasRead) {
      _direct();
      _children();
      _parents();
      _ldap();
      _inUse();
    }
    _compare();
    StoreConnection db;
    m_directlyEditable = isModifiable(db, m_viewer, m_object.id);
  }

  Json rows() const {
    Json rows = Json::array();
    for (const Json& step : m_steps) {
      rows.push_back({{"step", step.at("step")},
                      {"through", step.at("through")},
                      {"owners", step.at("owners")},
                      {"seen", step.at("seen")},
                      {"left", step.at("left")}});
    }
    rows.push_back(_resultRow("visible", _summary() != nullptr));
    rows.push_back(_resultRow("editable", _editable()));
    rows.push_back(_resultRow("deletable", m_deletable));
    rows.push_back(_resultRow("modify/remove", m_directlyEditable));
    Json used = _resultRow("used by", nullptr);
    used["seen"] = rulesThatUse(m_object.id);
    rows.push_back(used);
    return rows;
  }

  Json document() const {
    return {{"id", m_object.id},
            {"type", nameOfType(m_object.type)},
            {"name", m_object.name},
            {"as", m_viewer.name},
            {"root", m_viewer.isRoot},
            {"steps", m_steps},
            {"visible", _summary() != nullptr},
            {"editable", _editable()},
            {"deletable", m_deletable},
            {"directly_editable", m_directlyEditable},
            {"owners_left", _names(_left())},
            {"rules", rulesThatUse(m_object.id)}};
  }

 private:
  static Json _resultRow(const char* what, const Json& answer) {
    return {{"step", what}, {"through", nullptr}, {"owners", nullptr}, {"seen", answer}, {"left", nullptr}};
  }

  void _read() {
    if (!ZaroNamedObj::_getNamedObjIds(m_db, m_candidates, m_object.type, m_viewer.isRoot ? &m_out : nullptr)) {
      throw RuntimeError("cannot read the objects: " + databaseFailure(), zaroruntime::lastFailureKind());
    }
    m_wasRead = m_candidates.count(m_object.id) != 0;
    _add(m_wasRead ? "read" : "not listed", nullptr, _left());
  }

  void _direct() {
    const Owners before = _left();
    ZaroNamedObj::_addDirRefNamedObjIds(m_viewer.entities, m_candidates, m_out);
    _add("direct", nullptr, _gone(before));
  }

  // Every wildcard group of the administrator has its children first, then every one its parents.
  void _children() {
    for (const GroupEntity& entity : _wildcards()) {
      EntitySet found = _relatives(EntityUtils::getAllWildcardChildren, entity);
      const Owners before = _left();
      ZaroNamedObj::_addChildrenNamedObjs(found, m_candidates, m_out);
      _add("children", entity.name, _gone(before));
    }
  }

  void _parents() {
    for (const GroupEntity& entity : _wildcards()) {
      EntitySet found = _relatives(EntityUtils::getAllWildcardParents, entity);
      Owners through;
      for (const GroupEntity& parent : found) {
        EntitySet one = {parent};
        std::vector<SummaryNamedObject> listed;
        ZaroNamedObj::_addParentNamedObjs(one, m_candidates, listed);
        if (_find(listed) != nullptr) {
          through.insert(parent.id);
        }
      }
      ZaroNamedObj::_addParentNamedObjs(found, m_candidates, m_out);
      _add("parents", entity.name, through);
    }
  }

  void _ldap() {
    const auto isLdap = [](const GroupEntity& entity) { return entity.type == GroupEntity::LdapGroup; };
    if (std::none_of(m_viewer.entities.begin(), m_viewer.entities.end(), isLdap)) {
      return;
    }
    const Owners before = _left();
    if (!ZaroNamedObj::_addRelatedLdapIds(m_db, m_viewer.entities, m_candidates, m_out)) {
      throw RuntimeError("cannot look for relatives of LDAP groups: " + databaseFailure(),
                         zaroruntime::lastFailureKind());
    }
    _add("ldap", nullptr, _gone(before));
  }

  void _inUse() {
    m_deletable = _editable() && answerOf("cannot tell whether a rule uses the object",
                                          [&] { return ZaroNamedObj::_isDeletability(m_db, m_object.id); });
  }

  // The steps must come to what the whole comes to.
  void _compare() const {
    const auto whole = visibleObjects(m_viewer, m_object.type);
    const SummaryNamedObject* expected = _find(whole);
    const SummaryNamedObject* summary = _summary();
    if ((expected != nullptr) != (summary != nullptr) ||
        (expected != nullptr && (expected->editable != summary->editable || expected->deletable != m_deletable))) {
      throw RuntimeError("something changed in the meantime; ask again", FailureKind::Contention);
    }
  }

  using Relation = int (*)(const char*, EntitySet&, EntitySet&, bool);

  EntitySet _relatives(Relation relation, const GroupEntity& entity) {
    if (m_patterns.empty()) {
      m_patterns = entitiesOfType(GroupEntity::Wildcard);
    }
    EntitySet found;
    const int code = relation(entity.name.c_str(), m_patterns, found, false);
    if (code != ZaroErrC::Success) {
      throw RuntimeError("the library finds no relatives of " + quoted(entity.name) + " (code " + std::to_string(code) +
                             "), so " + ::quoted(m_viewer.name) + " gets no list; see zaroctl check",
                         zaroruntime::lastFailureKind());
    }
    return found;
  }

  std::vector<GroupEntity> _wildcards() const {
    std::vector<GroupEntity> wildcards;
    std::copy_if(m_viewer.entities.begin(), m_viewer.entities.end(), std::back_inserter(wildcards),
                 [](const GroupEntity& entity) { return entity.type == GroupEntity::Wildcard; });
    return wildcards;
  }

  Owners _left() const {
    const auto candidate = m_candidates.find(m_object.id);
    return candidate != m_candidates.end() ? candidate->second.entities : Owners();
  }

  Owners _gone(const Owners& before) const {
    const Owners after = _left();
    Owners gone;
    std::set_difference(before.begin(), before.end(), after.begin(), after.end(), std::inserter(gone, gone.end()));
    return gone;
  }

  const SummaryNamedObject* _find(const std::vector<SummaryNamedObject>& objects) const {
    const auto found = std::find_if(objects.begin(), objects.end(),
                                    [&](const SummaryNamedObject& object) { return object.id == m_object.id; });
    return found != objects.end() ? &*found : nullptr;
  }

  const SummaryNamedObject* _summary() const { return _find(m_out); }
  bool _editable() const { return _summary() != nullptr && _summary()->editable; }

  // By name where there is one: the reading statement gives an object without owners the owner 0.
  Json _names(const Owners& owners) const {
    Json names = Json::array();
    for (const unsigned int owner : owners) {
      const auto entity = std::find_if(m_entities.begin(), m_entities.end(),
                                       [&](const GroupEntity& known) { return known.id == owner; });
      names.push_back(entity != m_entities.end() ? entity->name : owner == 0 ? "nobody" : std::to_string(owner));
    }
    return names;
  }

  void _add(const char* step, const Json& through, const Owners& owners) {
    const char* seen = _summary() == nullptr ? "no" : _summary()->editable ? "editable" : "read-only";
    m_steps.push_back(
        {{"step", step}, {"through", through}, {"owners", _names(owners)}, {"seen", seen}, {"left", _names(_left())}});
  }

  Viewer m_viewer;
  StoredObject m_object;
  std::vector<GroupEntity> m_entities;
  EntitySet m_patterns;
  ZARO::RdbmsInterface m_db;
  ZaroNamedObj::_candidates m_candidates;
  std::vector<SummaryNamedObject> m_out;
  Json m_steps = Json::array();
  bool m_wasRead = false;
  bool m_deletable = false;
  bool m_directlyEditable = false;
};

ExitCode explain(Output& out, const std::string& admin, const std::string& idText) {
  const unsigned int id = idArgument("ID", idText);
  const Viewer viewer = findViewer(admin);
  Explanation explanation(viewer, findObject(id));
  explanation.explain();
  out.rows({{"step", "STEP"}, {"through", "THROUGH"}, {"owners", "OWNERS"}, {"seen", "SEEN"}, {"left", "LEFT"}},
           explanation.rows(), explanation.document());
  return ExitCode::Found;
}

}  // namespace

void addObjectWhy(CommandTree& tree) {
  const auto admin = std::make_shared<std::string>();
  const auto id = std::make_shared<std::string>();
  CLI::App* command = tree.add("object why", "Explain what an administrator may do with an object",
                               {"zaroctl object why --as postmaster 3"},
                               tellingNotThere([admin, id](Output& out) { return explain(out, *admin, *id); }));
  command->add_option("--as", *admin, "The administrator who asks")->required()->type_name("ADMIN");
  command->add_option("ID", *id, "The object's identifier")->required()->type_name("");
}
