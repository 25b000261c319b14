// The ten settings of a game.

export const kPrefix = 'ConfigSerializationKey';

export const kSettings = [
  {
    name: 'SessionInactivityTimeLimit',
    kind: 'number',
    unit: 'seconds',
    fallback: 600,
    says: 'A pause longer than this ends the session: the game comes back to a new one.',
  },
  {
    name: 'UserSessionBackgroundTimeoutSeconds',
    kind: 'number',
    unit: 'seconds',
    fallback: 60,
    says: 'So long in the background, and the session is stopped and reported.',
  },
  {
    name: 'ConfigUpdateInterval',
    kind: 'number',
    unit: 'seconds',
    fallback: 86400,
    says: 'Between two requests for settings. Below zero: at every start and whenever the game becomes active.',
  },
  {
    name: 'ReportTemporaryFailureLimit',
    kind: 'number',
    unit: 'failures',
    fallback: 3,
    says: 'After so many failures in a row a report waits until the game returns to the foreground.',
  },
  {
    name: 'TransmitReportsImmediately',
    kind: 'switch',
    fallback: true,
    says: 'A report is sent as soon as it is queued.',
  },
  {
    name: 'TransmitReportsOnApplicationBackgrounding',
    kind: 'switch',
    fallback: true,
    says: 'What waits is sent when the game goes to the background.',
  },
  {
    name: 'TransmitReportsOnApplicationForegrounding',
    kind: 'switch',
    fallback: true,
    says: 'What waits is sent when the game returns to the foreground.',
  },
  {
    name: 'SendFirstSessionReports',
    kind: 'switch',
    fallback: true,
    says: 'First sessions are reported.',
  },
  {
    name: 'SendStartSessionReports',
    kind: 'switch',
    fallback: true,
    says: 'Starts of later sessions are reported.',
  },
  {
    name: 'SendStopSessionReports',
    kind: 'switch',
    fallback: true,
    says: 'Ends of sessions are reported.',
  },
].map((setting) => ({ ...setting, key: kPrefix + setting.name }));
