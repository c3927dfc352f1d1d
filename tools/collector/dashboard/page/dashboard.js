'use strict';
// The collector's dashboard: polls the JSON answers under /api/ and draws
// them. Every text that comes from a record reaches the page through
// textContent, new Option() or a chart label (drawn on a canvas), never as
// markup, so a record cannot bring elements or script into the page.

const refreshEvery = 5000;
const pageSize = 25;
const palette = ['#2f6db5', '#e07b39', '#3a9d5d', '#c0392b', '#8e6bbf', '#b8860b',
  '#17a2b8', '#d35d9b', '#5b8c2a', '#6c757d', '#a0a7ae'];
const facets = [['os', 'Operating system'], ['language', 'Language'],
  ['resolution', 'Screen resolution'], ['cpu', 'Processor'], ['memory', 'Memory'],
  ['gpu', 'Graphics card'], ['version', 'Software version'], ['model', 'Scanner model'],
  ['modules', 'Modules used']];
const ranges = { all: 0, hour: 3600e3, day: 86400e3, week: 7 * 86400e3, month: 30 * 86400e3 };
const charts = new Map();
let offset = 0;
let selected = null;

const $ = (id) => document.getElementById(id);

function element(tag, text, className) {
  const node = document.createElement(tag);
  if (text !== undefined) node.textContent = String(text);
  if (className) node.className = className;
  return node;
}

function tableRow(cells) {
  const row = element('tr');
  for (const cell of cells) {
    const td = element('td');
    if (cell instanceof Node) td.append(cell); else td.textContent = String(cell);
    td.title = td.textContent;
    row.append(td);
  }
  return row;
}

const counted = (count, noun) => `${count} ${noun}${count === 1 ? '' : 's'}`;

// "2026-11-23T09:04:10Z" as "2026-11-23 09:04:10"; the headings say UTC.
const time = (utc) => utc.replace('T', ' ').replace('Z', '');

function bytes(count) {
  const units = ['bytes', 'KiB', 'MiB', 'GiB', 'TiB'];
  let unit = 0;
  for (; count >= 1024 && unit < units.length - 1; ++unit) count /= 1024;
  return `${unit ? count.toFixed(1) : count} ${units[unit]}`;
}

function filterParams() {
  const params = new URLSearchParams();
  const span = ranges[$('range').value];
  if (span) params.set('since', new Date(Date.now() - span).toISOString().slice(0, 19) + 'Z');
  if ($('type').value) params.set('type', $('type').value);
  if ($('app').value) params.set('app', $('app').value);
  return params;
}

async function answer(path, params) {
  const response = await fetch(params ? `${path}?${params}` : path, { cache: 'no-store' });
  if (!response.ok) throw new Error(`${path} answered HTTP ${response.status}`);
  return response;
}

// A bar chart, made once and then given new data.
function barChart(id, labels, datasets, { horizontal = false, stacked = false } = {}) {
  const existing = charts.get(id);
  if (existing) {
    existing.data = { labels, datasets };
    existing.update('none');
    return;
  }
  const counts = { beginAtZero: true, stacked, ticks: { precision: 0 } };
  const names = {
    stacked,
    ticks: {
      callback(value) {  // long names cut, in full in the tooltip
        const label = String(this.getLabelForValue(value));
        return label.length > 28 ? `${label.slice(0, 27)}…` : label;
      },
    },
  };
  charts.set(id, new Chart($(id), {
    type: 'bar',
    data: { labels, datasets },
    options: {
      animation: false,
      maintainAspectRatio: false,
      datasets: { bar: { maxBarThickness: 32 } },
      indexAxis: horizontal ? 'y' : 'x',
      plugins: { legend: { display: datasets.length > 1 || stacked } },
      scales: horizontal ? { x: counts, y: names } : { x: names, y: counts },
    },
  }));
}

// Keeps the choice, and offers what the records hold.
function offer(select, values) {
  const shown = [...select.options].slice(1).map((option) => option.value);
  if (shown.join('\n') === values.join('\n')) return;
  const chosen = select.value;
  select.length = 1;
  for (const value of values) select.add(new Option(value, value));
  if (values.includes(chosen)) select.value = chosen;
}

function showSummary(summary) {
  offer($('type'), summary.known_types);
  offer($('app'), summary.known_apps);
  $('record-total').textContent = String(summary.records);
  $('totals').tBodies[0].replaceChildren(
    ...summary.types.map((type) => tableRow([type.type, type.total])));
  barChart('chart-days', summary.days, summary.types.map((type, i) => ({
    label: type.type, data: type.per_day, backgroundColor: palette[i % palette.length],
  })), { stacked: true });
}

function showDistributions(distributions) {
  $('basis').textContent = `from ${counted(distributions.records, `${distributions.basis} record`)}`;
  for (const [name] of facets) {
    const values = distributions.facets[name];
    barChart(`facet-${name}`, values.map(([value]) => value), [{
      label: 'records', data: values.map(([, count]) => count), backgroundColor: palette[0],
    }], { horizontal: true });
  }
  barChart('chart-scores', distributions.scores.map(([score]) => String(score)), [{
    label: 'score records', data: distributions.scores.map(([, count]) => count),
    backgroundColor: palette[1],
  }]);
}

function showFeedback({ feedback }) {
  $('feedback-list').replaceChildren(...feedback.map((item) => {
    const entry = element('li');
    entry.append(element('div', `${time(item.received_at)} · ${item.email || 'no email'}`, 'quiet'),
      element('p', item.text));
    if (item.attachments.length)
      entry.append(element('div', `attachments: ${item.attachments.join(', ')}`, 'quiet'));
    return entry;
  }));
  if (!feedback.length) $('feedback-list').append(element('li', 'no feedback records', 'quiet'));
}

function showRecords({ total, records }) {
  $('record-count').textContent = counted(total, 'record');
  $('page').textContent = total ? `${offset + 1}–${offset + records.length} of ${total}` : '';
  $('newer').disabled = offset === 0;
  $('older').disabled = offset + records.length >= total;
  $('record-rows').replaceChildren(...records.map((record) => {
    const row = tableRow([time(record.received_at), record.type, record.app_id,
      record.software_version, record.model]);
    row.dataset.id = String(record.id);
    row.classList.toggle('selected', record.id === selected);
    row.addEventListener('click', () => showRecord(record.id));
    return row;
  }));
}

function showFiles({ count, bytes: size, files }) {
  $('file-count').textContent = `${counted(count, 'file')}, ${bytes(size)}`;
  $('file-rows').replaceChildren(...files.map((file) => {
    const link = element('a', file.name);
    link.href = file.download;
    link.download = '';
    return tableRow([link, bytes(file.size), time(file.received_at), file.app_id]);
  }));
}

async function showRecord(id) {
  selected = id;
  for (const row of $('record-rows').rows) row.classList.toggle('selected', row.dataset.id === String(id));
  $('record-title').textContent = `Record ${id}`;
  try {
    const text = await (await answer(`/api/records/${id}`)).text();
    let shown = text;
    try { shown = JSON.stringify(JSON.parse(text), null, 2); } catch (notJson) { /* as stored */ }
    $('record-json').textContent = shown;
  } catch (error) {
    $('record-json').textContent = error.message;
  }
}

let running = false;
let again = false;
async function refresh() {
  if (running) { again = true; return; }
  running = true;
  try {
    const params = filterParams();
    const page = new URLSearchParams(params);
    page.set('offset', offset);
    page.set('limit', pageSize);
    const [summary, distributions, feedback, records, files] = await Promise.all([
      answer('/api/summary', params), answer('/api/distributions', params),
      answer('/api/feedback', params), answer('/api/records', page),
      answer('/api/files', params)].map((reply) => reply.then((response) => response.json())));
    showSummary(summary);
    showDistributions(distributions);
    showFeedback(feedback);
    showRecords(records);
    showFiles(files);
    $('status').textContent = `updated ${new Date().toLocaleTimeString()}`;
  } catch (error) {
    $('status').textContent = `cannot reach the collector: ${error.message}`;
  } finally {
    running = false;
    if (again) { again = false; refresh(); }
  }
}

function start() {
  for (const [name, title] of facets) {
    const card = element('div');
    const holder = element('div', undefined, 'chart');
    const canvas = element('canvas');
    canvas.id = `facet-${name}`;
    canvas.setAttribute('aria-label', title);
    holder.append(canvas);
    card.append(element('h3', title), holder);
    $('facets').append(card);
  }
  for (const id of ['range', 'type', 'app'])
    $(id).addEventListener('change', () => { offset = 0; refresh(); });
  $('newer').addEventListener('click', () => { offset = Math.max(0, offset - pageSize); refresh(); });
  $('older').addEventListener('click', () => { offset += pageSize; refresh(); });
  refresh();
  setInterval(refresh, refreshEvery);
}

start();
