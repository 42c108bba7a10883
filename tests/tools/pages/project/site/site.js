if (location.pathname === '/')
  document.getElementById('root').textContent = 'Главная';
