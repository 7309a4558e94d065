// The configuration of a NATS cluster as a relay: each node speaks MQTT, and keeps sessions and messages together with
// the others. One account, and in it a user for this computer and one for each place of a phone.

import { randomBytes } from 'node:crypto';

const NAME = /^[A-Za-z0-9][A-Za-z0-9._-]{0,62}$/;
const isPort = (port) => Number.isInteger(port) && port > 0 && port < 65536;
const quoted = (text) => JSON.stringify(text);

function whyBad(plan) {
  if (typeof plan?.app_url !== 'string' || !/^https?:\/\//.test(plan.app_url))
    return 'app_url must be a web address';
  if (!Array.isArray(plan.nodes) || plan.nodes.length < 3) return 'nodes must name at least 3 servers';
  if (plan.ca !== undefined && !(typeof plan.ca === 'string' && plan.ca.startsWith('/')))
    return 'ca must be the full path of a file';
  for (const node of plan.nodes) {
    if (!NAME.test(node.name ?? '') || !NAME.test(node.host ?? '')) return 'each node has a name and a host';
    for (const key of ['client_port', 'cluster_port', 'mqtt_port', 'phone_port'])
      if (!isPort(node[key])) return `${node.name}: ${key} must be a port`;
    if (typeof node.store !== 'string' || !node.store.startsWith('/'))
      return `${node.name}: store must be a folder`;
    if (Boolean(node.cert) !== Boolean(node.key)) return `${node.name}: cert and key belong together`;
  }
  return null;
}

// What a client of MQTT needs of NATS beside its own topics: its queue of kept messages, and word that it has them.
const OWN = ['$MQTT.sub.>'];

function user(name, password, publish, subscribe) {
  const list = (subjects) => `[${subjects.map(quoted).join(', ')}]`;
  return `      { user: ${quoted(name)}, password: ${quoted(password)}, permissions: { publish: ${list(publish)}, subscribe: ${list(subscribe)} } }`;
}

function nodeFile(node, plan, users, routes) {
  const tls = node.cert ? `tls { cert_file: ${quoted(node.cert)}, key_file: ${quoted(node.key)} }` : null;
  const others = plan.nodes
    .filter((other) => other !== node)
    .map((other) =>
      quoted(`nats-route://${routes.user}:${routes.password}@${other.host}:${other.cluster_port}`),
    );
  return `# Written by kd relay serve --cluster.
server_name: ${quoted(node.name)}
host: ${quoted(node.host)}
port: ${node.client_port}
max_payload: 300000
jetstream { store_dir: ${quoted(node.store)} }
cluster {
  name: "kelvadrome-relay"
  host: ${quoted(node.host)}
  port: ${node.cluster_port}
  authorization { user: ${quoted(routes.user)}, password: ${quoted(routes.password)} }
  routes: [${others.join(', ')}]
}
# Phones. Without a certificate it is for trying out on one machine.
websocket {
  host: ${quoted(node.host)}
  port: ${node.phone_port}
  ${tls ?? 'no_tls: true'}
}
# Computers.
mqtt {
  host: ${quoted(node.host)}
  port: ${node.mqtt_port}
  stream_replicas: 3
  consumer_replicas: 3${tls ? `\n  ${tls}` : ''}
}
accounts {
  relay {
    jetstream: enabled
    users: [
${users.join(',\n')}
    ]
  }
}
`;
}

/** From the plan of a cluster to relay.json and a file for each node. `usage` makes the error of a bad plan. */
export function clusterFiles(plan, { username, password, places }, usage) {
  const why = whyBad(plan);
  if (why) throw usage(`The plan of the cluster: ${why}.`);
  const users = [
    user(username, password, ['kd.*.down', '$MQTT.msgs.>', '$JS.ACK.>'], ['kd.*.up', ...OWN]),
    ...places.map((place) =>
      user(
        place.channel,
        place.password,
        [`kd.${place.channel}.up`, '$JS.ACK.>'],
        [`kd.${place.channel}.down`, ...OWN],
      ),
    ),
  ];
  const routes = { user: 'route', password: randomBytes(16).toString('hex') };
  const config = {
    app_url: plan.app_url,
    phone_urls: plan.nodes.map(
      ({ cert, host, phone_port }) => `${cert ? 'wss' : 'ws'}://${host}:${phone_port}/mqtt`,
    ),
    desk_urls: plan.nodes.map(
      ({ cert, host, mqtt_port }) => `${cert ? 'mqtts' : 'mqtt'}://${host}:${mqtt_port}`,
    ),
    username,
    password,
    places,
    ...(plan.ca ? { ca: plan.ca } : {}),
  };
  const files = Object.fromEntries(
    plan.nodes.map((node) => [`${node.name}.conf`, nodeFile(node, plan, users, routes)]),
  );
  return { config, files };
}
