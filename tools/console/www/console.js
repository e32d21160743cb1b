// The room console's page: the live view from /api/events and one form per setting of the JSON API.
// Everything the service or the files hold is inserted with textContent or as a field's value, never
// as markup.
'use strict';

const session = { csrf: '', login: false };
const byId = (id) => document.getElementById(id);

function element(tag, properties = {}, children = []) {
  const node = document.createElement(tag);
  for (const [key, value] of Object.entries(properties)) {
    if (key === 'text') node.textContent = value;
    else if (key in node) node[key] = value;
    else node.setAttribute(key, value);
  }
  for (const child of children) node.append(child);
  return node;
}

async function api(method, path, body) {
  const headers = {};
  if (body !== undefined) headers['Content-Type'] = 'application/json';
  if (method !== 'GET' && session.csrf) headers['X-CSRF-Token'] = session.csrf;
  let response;
  try {
    response = await fetch(path, { method, headers, credentials: 'same-origin',
                                   body: body === undefined ? undefined : JSON.stringify(body) });
  } catch (error) {
    return { ok: false, status: 0, data: { error: 'the console cannot be reached' } };
  }
  let data = null;
  try { data = await response.json(); } catch (error) { data = null; }
  if (response.status === 401 && path !== '/api/login') showLogin();
  return { ok: response.ok, status: response.status, data };
}

function say(output, answer, doneText = 'Done.') {
  const good = answer.ok;
  output.textContent = good ? doneText : `Refused (${answer.status}): ${(answer.data && answer.data.error) || 'no answer'}`;
  output.classList.toggle('good', good);
  output.classList.toggle('bad', !good);
}

// ---- checks shared by the forms ----
const IPV4 = /^(25[0-5]|2[0-4]\d|1\d\d|[1-9]?\d)(\.(25[0-5]|2[0-4]\d|1\d\d|[1-9]?\d)){3}$/;
const BAUDS = ['1200', '2400', '4800', '9600', '19200', '38400', '57600', '115200', '230400'];
const checks = {
  ip: (v) => IPV4.test(v) || 'must be an IPv4 address such as 192.0.2.40',
  port: (v) => (/^\d{1,5}$/.test(v) && +v >= 1 && +v <= 65535) || 'must be a TCP port from 1 to 65535',
  whole: (v) => v === '' || /^\d+$/.test(v) || 'must be a whole number from 0',
};
const MIC_PROTOCOLS = [[0, 'none'], [1, 'tcp'], [2, 'shure-tcp'], [3, 'show-tcp'], [5, 'sennheiser-tcp'],
  [6, 'bosch-tcp'], [8, 'hayaco-tcp'], [9, 'televic-tcp'], [10, 'atuc-tcp'], [11, 'atnd-tcp'],
  [12, 'atnd_8_district-tcp'], [13, 'bosch_ccu2-tcp'], [14, 'televic_dcerno-tcp'], [15, 'shure_mxa-tcp'],
  [16, 'shure_mxw-tcp'], [17, 'shure_mxcw-tcp'], [18, 'televic_tlv-tcp'], [19, 'bxb_fcs-tcp'], [21, 'rs232'],
  [25, 'usb-olvin-s1']];
const isTcp = (values) => /tcp/.test(String(values.protocol_label || ''));

// Field kinds: text, password, number, checkbox, select (options: [value, label]).
const f = (name, label, kind = 'text', extra = {}) => ({ name, label, kind, ...extra });
const micProtocol = () => f('protocol', 'Protocol', 'select', { options: MIC_PROTOCOLS, number: true });
const baud = (when) => f('baud_rate', 'Serial speed', 'select', { options: BAUDS.map((b) => [b, b]), when });
const FORMS = [
  { id: 'mic-central', title: 'Mic central settings', get: '/api/mic-central', send: ['PUT', '/api/mic-central'],
    fields: [f('enable', 'Enabled', 'checkbox'), micProtocol(),
      f('ip_address', 'IP address', 'text', { check: checks.ip, when: isTcp }),
      f('username', 'User name', 'text', { when: isTcp }), f('password', 'Password', 'password', { when: isTcp }),
      f('port', 'TCP port', 'text', { check: checks.port, optional: true, when: isTcp }),
      baud((v) => v.protocol === '21')] },
  { id: 'mic-central-test', title: 'Test the mic central', send: ['POST', '/api/mic-central/test'], button: 'Test',
    fields: [micProtocol(), f('ip_address', 'IP address', 'text', { check: checks.ip }), f('username', 'User name'),
      f('password', 'Password', 'password')] },
  { id: 'castdeck', title: 'Media station', get: '/api/castdeck', send: ['PUT', '/api/castdeck'],
    fields: [f('enable', 'Enabled', 'checkbox'),
      f('protocol', 'Protocol', 'select', { options: [[0, 'none'], [1, 'tcp'], [21, 'rs232']], number: true }),
      f('ip_address', 'IP address', 'text', { check: checks.ip, when: (v) => v.protocol === '1' }),
      f('port', 'TCP port', 'text', { check: checks.port, when: (v) => v.protocol === '1' }),
      f('username', 'User name', 'text', { when: (v) => v.protocol === '1' }),
      f('password', 'Password', 'password', { when: (v) => v.protocol === '1' }),
      baud((v) => v.protocol === '21')] },
  { id: 'projector', title: 'Projector', get: '/api/projector', send: ['PUT', '/api/projector'],
    fields: [f('protocol', 'Protocol', 'select', { from: 'protocol_name',
      options: [['none', 'none'], ['pjlink', 'PJLink'], ['hitachi_tcp', 'Hitachi over TCP'], ['hitachi_rs232', 'Hitachi over RS232']] }),
      f('ip_address', 'IP address', 'text', { check: checks.ip, when: (v) => /tcp|pjlink/.test(v.protocol) }),
      f('password', 'Password', 'password', { when: (v) => /tcp|pjlink/.test(v.protocol) }),
      baud((v) => v.protocol === 'hitachi_rs232')] },
  { id: 'projector-test', title: 'Test the projector', send: ['POST', '/api/projector/test'], button: 'Test',
    fields: [f('protocol', 'Protocol', 'select', { options: [['pjlink', 'PJLink'], ['hitachi_tcp', 'Hitachi over TCP']] }),
      f('ip_address', 'IP address', 'text', { check: checks.ip }), f('password', 'Password', 'password')] },
  { id: 'tcp-control', title: 'External control over TCP', get: '/api/tcp-control', send: ['PUT', '/api/tcp-control'],
    fields: [f('authentication', 'Ask for a login', 'checkbox'), f('port', 'TCP port', 'text', { check: checks.port })] },
  { id: 'rs232-control', title: 'RS232 control', get: '/api/rs232/control', send: ['PUT', '/api/rs232/control'],
    fields: [f('builtin_TTY', 'Built-in serial device'), f('port', 'Control port'),
      f('baud_rate', 'Serial speed', 'select', { options: [['', 'not set']].concat(BAUDS.map((b) => [b, b])) }),
      f('ignored_TTYUSB_A', 'Ignored ttyUSB (A)', 'number', { min: -1 }), f('ignored_TTYUSB_B', 'Ignored ttyUSB (B)', 'number', { min: -1 }),
      f('disable_USB_camctrl', 'No camera control over USB', 'checkbox'), f('enable_USB_wenk9', 'wenk9 accessory', 'checkbox'),
      f('enable_USB_zorvo', 'Remote controller', 'checkbox'), f('default_command', 'Default command'),
      f('focus_command', 'Focus command'), f('conflict_command', 'Conflict command')] },
  { id: 'imshare', title: 'Image sharing', get: '/api/imshare', send: ['PUT', '/api/imshare'],
    fields: [f('hid', 'HID forwarding on', 'checkbox')] },
  { id: 'speakers-mode', title: 'Multiple speakers mode', get: '/api/mic-control/speakers-mode',
    send: ['PUT', '/api/mic-control/speakers-mode'],
    fields: [f('multi_mode', 'Multi mode', 'number', { min: 0, required: true }),
      f('cancel_mode', 'Cancel mode', 'number', { min: 0, required: true })] },
];

// A microphone control item's fields; `withId` false for conflict and mode items.
function itemFields(withGroup, withId) {
  const fields = [];
  if (withGroup) fields.push(f('gr', 'Group', 'text', { required: true }));
  if (withId) fields.push(f('id', 'Id', 'text', { required: true }));
  if (withGroup) fields.push(f('nt', 'Name'));
  for (let k = 0; k < 4; k++) {
    fields.push(f(`c${k}`, `Camera ${k + 1}`, 'number', { min: 0, pair: `p${k}` }));
    fields.push(f(`p${k}`, `Preset ${k + 1}`, 'number', { min: 0, pair: `c${k}` }));
  }
  for (const [key, label] of [['l', 'Level (l)'], ['o', 'Option (o)'], ['b', 'Bank (b)'], ['s', 'Scene (s)']])
    fields.push(f(key, label, 'number', { min: 0 }));
  return fields;
}
const ITEM_FORMS = [
  { id: 'item', title: 'Add or change an item', send: ['POST', '/api/mic-control/items'], fields: itemFields(true, true),
    after: loadItems },
  { id: 'conflict', title: 'Add or change a group conflict', send: ['POST', '/api/mic-control/conflicts'],
    fields: itemFields(true, false), after: loadConflicts },
  { id: 'default-mode', title: 'Default mode', get: '/api/mic-control/default-mode', send: ['PUT', '/api/mic-control/default-mode'],
    fields: [f('cancel_mode', 'Cancel mode', 'number', { min: 0, required: true })].concat(itemFields(false, false)), nested: true },
  { id: 'conflict-mode', title: 'General conflict mode', get: '/api/mic-control/conflict-mode',
    send: ['PUT', '/api/mic-control/conflict-mode'], fields: itemFields(false, false), nested: true },
];

// ---- forms ----
function buildForm(setting, parent) {
  const form = element('form', { id: `${setting.id}-form`, noValidate: true });
  for (const field of setting.fields) {
    const id = `${setting.id}-${field.name}`;
    let input;
    if (field.kind === 'select') {
      input = element('select', { id, name: field.name },
        field.options.map(([value, label]) => element('option', { value: String(value), text: label })));
    } else {
      input = element('input', { id, name: field.name, type: field.kind });
      if (field.min !== undefined) input.min = field.min;
    }
    const label = element('label', { htmlFor: id, text: field.label });
    field.nodes = [label, input];
    form.append(label, input);
    input.addEventListener('change', () => showFields(setting, form));
  }
  const output = element('output', { className: 'answer', id: `${setting.id}-answer` });
  form.append(element('button', { type: 'submit', text: setting.button || 'Save' }), output);
  form.addEventListener('submit', async (event) => {
    event.preventDefault();
    const { body, problem } = collect(setting, form);
    if (problem) {
      output.textContent = problem;
      output.className = 'answer bad';
      return;
    }
    say(output, await api(setting.send[0], setting.send[1], body), setting.button === 'Test' ? 'The test passed.' : 'Saved.');
    if (setting.after) setting.after();
  });
  parent.append(element('article', {}, [element('h2', { text: setting.title }), form]));
  setting.form = form;
  showFields(setting, form);
}

function values(form) {
  const out = {};
  for (const input of form.querySelectorAll('input, select')) {
    out[input.name] = input.type === 'checkbox' ? input.checked : input.value.trim();
    if (input.tagName === 'SELECT' && input.selectedOptions[0]) out[`${input.name}_label`] = input.selectedOptions[0].textContent;
  }
  return out;
}

function showFields(setting, form) {
  const current = values(form);
  for (const field of setting.fields) {
    const shown = !field.when || field.when(current);
    for (const node of field.nodes) node.hidden = !shown;
  }
}

// The JSON body of a form, or the first problem found (also marked on its field).
function collect(setting, form) {
  const current = values(form);
  const body = {};
  let problem = '';
  for (const field of setting.fields) {
    const input = field.nodes[1];
    input.removeAttribute('aria-invalid');
    if (input.hidden) continue;
    const value = current[field.name];
    let bad = '';
    if (field.kind === 'checkbox') { body[field.name] = value; continue; }
    if (value === '' && (field.required || (field.check && !field.optional))) bad = 'is required';
    else if (value !== '' && field.check && field.check(value) !== true) bad = field.check(value);
    else if (value !== '' && field.kind === 'number' && !/^-?\d+$/.test(value)) bad = 'must be a whole number';
    else if (value !== '' && field.kind === 'number' && +value < (field.min ?? -Infinity)) bad = `must be ${field.min} or more`;
    else if (field.pair && (value === '') !== (current[field.pair] === '')) bad = 'goes with its pair';
    if (bad && !problem) problem = `${field.label} ${bad}`;
    if (bad) input.setAttribute('aria-invalid', 'true');
    if (value === '') continue;
    body[field.name] = field.kind === 'number' || field.number ? Number(value) : value;
  }
  if (setting.nested) {
    const item = {};
    for (const key of Object.keys(body)) if (key !== 'cancel_mode') { item[key] = body[key]; delete body[key]; }
    body.item = item;
  }
  return { body, problem };
}

function fill(setting, data) {
  const source = setting.nested ? { ...data.item, cancel_mode: data.cancel_mode } : data;
  for (const field of setting.fields) {
    const input = field.nodes[1];
    let value = source[field.from || field.name];
    if (field.kind === 'checkbox') input.checked = Boolean(value);
    else input.value = value === undefined || value === null || value === -1 ? '' : String(value);
  }
  showFields(setting, setting.form);
}

async function loadForm(setting) {
  if (!setting.get) return;
  const answer = await api('GET', setting.get);
  if (answer.ok) fill(setting, answer.data);
  else say(setting.form.querySelector('output'), answer);
}

// ---- microphone control items ----
function describeItem(item) {
  return Object.entries(item).filter(([key]) => !['gr', 'id', 'nt'].includes(key))
    .map(([key, value]) => `${key}=${value}`).join(' ');
}

function actionButton(text, handler) {
  const button = element('button', { type: 'button', className: 'secondary', text });
  button.addEventListener('click', handler);
  return button;
}

async function loadItems() {
  const answer = await api('GET', '/api/mic-control/items');
  const body = byId('items-table').tBodies[0];
  body.replaceChildren();
  if (!answer.ok) return say(byId('items-answer'), answer);
  for (const item of answer.data.items) {
    const path = `/api/mic-control/items/${encodeURIComponent(item.gr)}/${encodeURIComponent(item.id)}`;
    const run = (kind) => async () => say(byId('items-answer'), await api('POST', `/api/mic-control/items/${kind}`, item));
    const buttons = element('div', { className: 'buttons' }, [
      actionButton('Edit', () => fill(ITEM_FORMS[0], item)),
      actionButton('Execute', run('execute')), actionButton('Simulate', run('simulate')),
      actionButton('Delete', async () => { say(byId('items-answer'), await api('DELETE', path), 'Deleted.'); loadItems(); })]);
    body.append(element('tr', {}, [element('td', { text: item.gr }), element('td', { text: item.id }),
      element('td', { text: item.nt || '' }), element('td', { text: describeItem(item) }), element('td', {}, [buttons])]));
  }
}

async function loadConflicts() {
  const answer = await api('GET', '/api/mic-control/conflicts');
  const body = byId('conflicts-table').tBodies[0];
  body.replaceChildren();
  if (!answer.ok) return say(byId('conflicts-answer'), answer);
  for (const item of answer.data.items) {
    const remove = actionButton('Delete', async () => {
      say(byId('conflicts-answer'), await api('DELETE', `/api/mic-control/conflicts/${encodeURIComponent(item.gr)}`), 'Deleted.');
      loadConflicts();
    });
    body.append(element('tr', {}, [element('td', { text: item.gr }), element('td', { text: describeItem(item) }),
      element('td', {}, [remove])]));
  }
}

// ---- remote controller ----
let macros = [];
function showMacro() {
  const macro = macros[byId('macro-index').selectedIndex];
  const box = byId('macro-channels');
  box.replaceChildren(element('legend', { text: 'Channels' }));
  if (!macro) return;
  byId('macro-scenes').value = macro.scenes;
  for (const channel of macro.channels) {
    const on = element('input', { type: 'checkbox', id: `channel-${channel.channel}-enable`, checked: channel.enable });
    const preset = element('input', { type: 'text', id: `channel-${channel.channel}-preset`, value: channel.preset });
    box.append(element('label', { htmlFor: on.id, text: `Channel ${channel.channel} on` }), on,
      element('label', { htmlFor: preset.id, text: 'preset' }), preset);
  }
}

async function loadRemote() {
  const firmware = await api('GET', '/api/zorvo/firmware');
  if (firmware.ok) {
    byId('zorvo-model').textContent = firmware.data.model || 'unknown';
    byId('zorvo-fw').textContent = firmware.data.fw || 'unknown';
    byId('zorvo-boot').textContent = firmware.data.bootloader_fw || 'unknown';
  }
  const answer = await api('GET', '/api/zorvo/macros');
  macros = answer.ok ? answer.data.macros : [];
  byId('macro-index').replaceChildren(...macros.map((m) => element('option', { value: m.index, text: `Macro ${m.index}` })));
  showMacro();
}

function setUpRemote() {
  const form = byId('macro-form');
  const output = form.querySelector('output');
  byId('macro-index').addEventListener('change', showMacro);
  form.addEventListener('submit', async (event) => {
    event.preventDefault();
    const macro = macros[byId('macro-index').selectedIndex];
    const scenes = byId('macro-scenes').value.trim();
    if (!macro || checks.whole(scenes) !== true || scenes === '') {
      output.textContent = 'Scenes must be a whole number from 0';
      output.className = 'answer bad';
      return;
    }
    const channels = macro.channels.map((c) => ({ enable: byId(`channel-${c.channel}-enable`).checked,
                                                  preset: byId(`channel-${c.channel}-preset`).value }));
    say(output, await api('PUT', `/api/zorvo/macros/${macro.index}`, { scenes: Number(scenes), channels }), 'Saved.');
    loadRemote();
  });
  byId('macro-goto').addEventListener('click', async () =>
    say(output, await api('POST', `/api/zorvo/macros/${byId('macro-index').value}/goto`), 'The macro runs.'));
}

// ---- live view ----
const VOTE_STATES = ['no vote', 'open', 'running', 'stopped'];
function showVote(vote) {
  byId('vote-status').textContent = VOTE_STATES[vote.status] || String(vote.status);
  for (const key of ['agree', 'disagree', 'abandon', 'total']) byId(`vote-${key}`).textContent = String(vote[key]);
}

const micsOn = new Map();
function showMics() {
  const list = byId('mics-on');
  list.replaceChildren(...[...micsOn.values()].map((m) => element('li', { text: `Group ${m.group}, microphone ${m.id}` })));
  byId('mics-none').hidden = micsOn.size > 0;
}

async function loadLive() {
  const vote = await api('GET', '/api/voting');
  if (vote.ok) showVote(vote.data);
  const mics = await api('GET', '/api/microphones/on');
  if (mics.ok) {
    micsOn.clear();
    for (const m of mics.data.microphones) micsOn.set(`${m.group}/${m.id}`, m);
    showMics();
  }
  const central = await api('GET', '/api/mic-central/state');
  byId('central-state').textContent = central.ok ? (central.data.connected ? 'connected' : 'not connected') : 'unknown';
}

function showPresence(state) {
  const pill = byId('service-state');
  pill.textContent = `service ${state}`;
  pill.className = `pill ${state}`;
  const wasOffline = !byId('offline-banner').hidden;
  byId('offline-banner').hidden = state !== 'offline';
  if (wasOffline && state === 'online') loadAll();
}

function listen() {
  const source = new EventSource('/api/events');
  source.onopen = () => { byId('stream-banner').hidden = true; };
  // EventSource reconnects by itself (the console asks for 1 s); the banner says so meanwhile.
  source.onerror = () => { byId('stream-banner').hidden = false; };
  source.onmessage = (message) => {
    const record = JSON.parse(message.data);
    if (record.event === 'presence') showPresence(record.data.state);
    else if (record.event === 'voting_results_event') showVote(record.data);
    else if (record.event === 'mic_on_event') {
      const key = `${record.data.group}/${record.data.id}`;
      if (record.data.on) micsOn.set(key, record.data); else micsOn.delete(key);
      showMics();
    } else if (record.event === 'info_data_change_event') loadLive();
    else if (record.event === 'lost') loadLive();
  };
}

// ---- start ----
function loadAll() {
  loadLive();
  for (const setting of FORMS.concat(ITEM_FORMS)) loadForm(setting);
  loadItems();
  loadConflicts();
  loadRemote();
}

function showLogin() {
  byId('console').hidden = true;
  byId('login-panel').hidden = false;
}

let started = false;
function showConsole() {
  byId('login-panel').hidden = true;
  byId('console').hidden = false;
  byId('logout').hidden = !session.login;
  if (!started) {
    started = true;
    for (const setting of FORMS) buildForm(setting, byId('settings'));
    for (const setting of ITEM_FORMS) buildForm(setting, byId('item-forms'));
    setUpRemote();
    listen();
  }
  loadAll();
}

async function start() {
  for (const button of document.querySelectorAll('[data-vote]')) {
    button.addEventListener('click', async () =>
      say(byId('vote-answer'), await api('POST', '/api/voting', { action: button.dataset.vote })));
  }
  byId('central-refresh').addEventListener('click', loadLive);
  byId('items-home').addEventListener('click', async () => say(byId('items-answer'), await api('POST', '/api/mic-control/home')));
  byId('config-validate').addEventListener('click', async () =>
    say(byId('config-answer'), await api('POST', '/api/config/validate'), 'The file is good (or was restored).'));
  byId('logout').addEventListener('click', async () => { await api('POST', '/api/logout'); session.csrf = ''; showLogin(); });
  byId('login-form').addEventListener('submit', async (event) => {
    event.preventDefault();
    const answer = await api('POST', '/api/login', { password: byId('login-password').value });
    say(byId('login-answer'), answer, 'Logged in.');
    if (answer.ok) { session.csrf = answer.data.csrf_token; session.login = true; showConsole(); }
  });
  const answer = await api('GET', '/api/session');
  if (!answer.ok) return showLogin();
  session.csrf = answer.data.csrf_token;
  session.login = answer.data.login;
  showConsole();
}

document.addEventListener('DOMContentLoaded', start);
