// A room without sources yet.
