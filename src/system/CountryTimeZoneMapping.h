// The country that a time zone lies in, from a fixed table: the service asks no location service.
//
// Zones are those of the tz database (IANA), codes those of ISO 3166-1 alpha-2. Constant data, safe
// on every thread.
#pragma once

class CountryTimeZoneMapping {
  public:
    CountryTimeZoneMapping() = delete;

    // The two-letter code for exactly this name, "XX" for a name that is not in the table. Aliases
    // are not resolved.
    static const char* GetCountryCode(const char* zoneName);
};
