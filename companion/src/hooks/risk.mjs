// How much harm a request can do, from what it asks for. Readable and short on purpose: it marks what a
// person should read twice, and is no protection. What it doesn't know is low.

const HIGH = [
  [
    'delete',
    /\brm\s+(-\S*[rf]|--recursive|--force)|\bshred\b|\bfind\b.*\s-delete\b|\bgit\s+clean\b|\bmkfs|\bdd\b.*\bof=/,
  ],
  ['delete', /\b(drop|truncate)\s+(table|database|schema)\b|\bdelete\s+from\b(?!.*\bwhere\b)/i],
  [
    'delete',
    /\b(terraform|tofu|pulumi)\s+destroy\b|\bkubectl\s+delete\b|\bdocker\s+(system|volume)\s+(prune|rm)\b/,
  ],
  [
    'force_push',
    /\bgit\b.*\bpush\b.*(\s-f\b|\s--force|\s--mirror|\s--delete|\s\+\S)|\bgit\s+reset\s+--hard\b/,
  ],
  [
    'publish',
    /\b(npm|pnpm|yarn|bun|cargo|gem|poetry|uv|flit)\s+publish\b|\btwine\s+upload\b|\bdocker\s+push\b|\bgh\s+release\b/,
  ],
  [
    'publish',
    /\b(terraform|tofu)\s+apply\b|\bkubectl\s+apply\b|\b(vercel|netlify|fly|heroku)\b.*\b(deploy|--prod|push)\b/,
  ],
  ['payment', /\b(stripe|paypal|checkout|invoice|refund|payout|purchase)\b/i],
  [
    'credentials',
    /\b(id_rsa|id_ed25519|authorized_keys|\.netrc|\.pgpass|\.npmrc)\b|\.(ssh|aws|gnupg|kube)\b|\.env\b(?!\.example)/,
  ],
  [
    'credentials',
    /\b(gh|gcloud|az|aws)\s+auth\b|\bpasswd\b|\b(secret|token|password|api[_-]?key)s?\b.*\b(print|cat|echo|curl|export)\b/i,
  ],
  ['remote_code', /\b(curl|wget)\b[^|]*\|\s*(sudo\s+)?(ba|z|da)?sh\b|\beval\b.*\$\((curl|wget)/],
];
const MEDIUM =
  /\b(sudo|doas|su)\b|\bgit\s+push\b|\bch(mod|own)\b|\b(apt|apt-get|dnf|brew|pip3?|npm|pnpm|yarn)\s+(install|add|remove|uninstall|-g)|\bssh\b|\bscp\b|\bkill(all)?\b/;

/** {risk, stop_type} of a text that is to be run, opened or sent. */
export function riskOf(text) {
  const found = HIGH.find(([, pattern]) => pattern.test(text));
  if (found) return { risk: 'high', stop_type: found[0] };
  return { risk: MEDIUM.test(text) ? 'medium' : 'low' };
}
