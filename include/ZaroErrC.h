// Status codes of the library's operations. Zero is success; each operation's comment lists the ones it returns.
#pragma once

namespace ZaroErrC {

enum Code : int {
  Success = 0,
  MissingData = 1002,        // a required row or column is missing, NULL or not a number
  DatabaseFailure = 1003,    // the database layer threw
  NullArgument = 1004,       // a required argument is null
  InvalidValue = 1007,       // a value is invalid, or an operation that was part of this one failed
  ClientSetting = 1608,      // a client setting is missing, or the settings store is unavailable
  ServerSetting = 1609,      // a server setting is missing, or the settings store is unavailable
  SettingNotWritten = 1610,  // a setting could not be written
  ServerListFailure = 4002,  // the list of policy servers: the database failed
  NoSqlDirectory = 4005,     // the list of policy servers: there is no statement directory
  NoStatementBuffer = 4008,  // an address group: a statement buffer could not be allocated
  NullMember = 6003,         // an address group: a required column is NULL
  NoSuchObject = 6022,       // removing a named object: it does not exist
  ObjectCameIntoUse = 6023,  // removing a named object: it came into use meanwhile
  ObjectNotEditable = 6024,  // removing a named object: the administrator may not edit it
  ObjectInUse = 6025,        // removing a named object: a rule refers to it
};

}  // namespace ZaroErrC
