// What decides mail, as it is stored: plain data, out of the database or out of a snapshot of it.
//
// Identifiers are those of the database. Nothing here is checked: PolicyGeneration does that when it is made of it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "KxListedEmailAddress.h"
#include "policy/TextList.h"

struct MailPolicy {
  // A wildcard managing group, whose pattern can be the scope of rules.
  struct Entity {
    unsigned int id = 0;
    std::string pattern;
  };

  struct Group {
    unsigned int id = 0;
    std::string name;
    TextList members;  // addresses and patterns as stored, in their order
  };

  // A named object other than an address group. Type 3 is a quarantine area.
  struct Object {
    unsigned int id = 0;
    int type = 0;
    std::string name;
    std::string content;
  };

  // An address group of senders, and what it means to the rule.
  struct List {
    unsigned int group = 0;
    KxEmailBelongsTo kind = 0;
  };

  // What of the sender a rule asks for, as stored.
  enum class Compare : int { Envelope = 1, Header = 2, Both = 3 };

  struct Rule {
    unsigned int id = 0;
    std::string name;
    unsigned int position = 0;  // unique; the lowest comes first
    bool enabled = false;
    std::optional<unsigned int> scope;       // an entity; nothing: every recipient
    std::optional<unsigned int> recipients;  // a group that narrows the scope
    std::vector<List> lists;
    Compare compare = Compare::Envelope;
    std::string actions;                     // the action bitmap of what a block does; empty is none
    std::optional<unsigned int> quarantine;  // an area
    std::string reply;
    std::string tag;
    std::string headerValue;
    std::string address;
  };

  // The administrators' own order of rule filters, as stored.
  struct FilterOrder {
    struct Group {
      int rank = 0;
      int filterId = 0;
      std::string filterType;
    };

    bool manual = false;
    std::vector<Group> groups;
  };

  // The database's counter: every change of what is here raises it.
  std::uint64_t version = 0;
  std::vector<Rule> rules;  // by position
  std::vector<Entity> entities;
  std::vector<Group> groups;
  std::vector<Object> objects;
  FilterOrder filterOrder;
};
