binary status snapshot
